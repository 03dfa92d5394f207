#include "KestrinProfileServer/ClientConfiguration.hpp"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <system_error>
#include <unistd.h>

#include "KestrinProfileServer/JSONText.hpp"
#include "KestrinProfileServer/Routes.hpp"
#include "KestrinProfileServer/Secrets.hpp"

namespace KestrinProfileServer {
namespace {

std::string serviceJSON(const Route& route, const std::string& baseURL,
                        const Household& household) {
    std::string json = "    " + jsonText(route.operation) + ": {\n";
    json += "      \"method\": " + jsonText(route.method) + ",\n";
    json += "      \"url\": " + jsonText(baseURL + urlTemplate(route)) + ",\n";
    json += "      \"body\": ";
    json += route.body.rule == BodyRule::none ? "\"none\"" : "\"json\"";
    if (route.access == Access::household) {
        json += ",\n      \"headers\": {" + jsonText(secretHeader) + ": " +
                jsonText(household.secret) + "}";
    }
    return json + "\n    }";
}

/// An open file descriptor that closes itself.
class Descriptor {
  public:
    explicit Descriptor(int number) : number_(number) {
        if (number_ < 0) throw std::system_error(errno, std::generic_category());
    }
    ~Descriptor() { ::close(number_); }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    void write(std::string_view content) const {
        while (!content.empty()) {
            const ssize_t count = ::write(number_, content.data(), content.size());
            if (count < 0) throw std::system_error(errno, std::generic_category());
            content.remove_prefix(static_cast<std::size_t>(count));
        }
    }

    void flush() const {
        if (::fsync(number_) != 0) throw std::system_error(errno, std::generic_category());
    }

  private:
    int number_;
};

void writeNewFile(const std::filesystem::path& file, const std::string& content) {
    const Descriptor descriptor(
        ::open(file.c_str(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, 0600));
    descriptor.write(content);
    descriptor.flush();
}

}  // namespace

std::string clientConfiguration(const std::string& baseURL, const std::string& brand,
                                const Household& household) {
    std::string json = "{\n  \"version\": 1,\n";
    json += "  \"parentProfileID\": " + jsonText(household.parentProfileID) + ",\n";
    json += "  \"brand\": " + jsonText(brand) + ",\n";
    json += "  \"development\": true,\n  \"services\": {\n";
    for (const Route& route : routes()) {
        json += serviceJSON(route, baseURL, household);
        json += &route == &routes().back() ? "\n" : ",\n";
    }
    return json + "  }\n}\n";
}

void writePrivateFile(const std::filesystem::path& file, const std::string& content) {
    auto temporary = file;
    temporary += "." + hexadecimal(randomBytes(4)) + ".tmp";
    try {
        writeNewFile(temporary, content);
        std::filesystem::rename(temporary, file);
    } catch (const std::system_error& failure) {
        std::error_code ignored;
        std::filesystem::remove(temporary, ignored);
        throw StartError("cannot write the configuration '" + file.string() +
                         "': " + failure.code().message() +
                         ". Name a file in a folder that exists with --write-config.");
    }
}

}  // namespace KestrinProfileServer
