#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <string_view>
#include <system_error>
#include <unistd.h>

#include <boost/json.hpp>

#include <internal/FileDescriptor.hpp>
#include <kestrin-profile-server/ClientConfiguration.hpp>
#include <kestrin-profile-server/domain/Secrets.hpp>
#include <kestrin-profile-server/http/Authorisation.hpp>
#include <kestrin-profile-server/http/Routes.hpp>

namespace KestrinProfileServer {
namespace {

std::string memberJSON(std::string_view name, std::string_view value) {
    return boost::json::serialize(name) + ": " + boost::json::serialize(value);
}

std::string serviceJSON(const Route& route, const std::string& baseURL,
                        const Household& household) {
    std::string json = boost::json::serialize(route.operation);
    json += ": {\n      ";
    json += memberJSON("method", route.method);
    json += ",\n      ";
    json += memberJSON("url", baseURL + urlTemplate(route));
    json += ",\n      ";
    json += memberJSON("body", route.body.rule == BodyRule::none ? "none" : "json");
    if (route.access == Access::household) {
        json += ",\n      \"headers\": {";
        json += memberJSON(secretHeader, household.secret);
        json += "}";
    }
    json += "\n    }";
    return json;
}

void throwIfFailed(ssize_t result) {
    if (result < 0) throw std::system_error(errno, std::generic_category());
}

void writeNewFile(const std::filesystem::path& file, const std::string& content) {
    const KestrinInternal::FileDescriptor descriptor(
        ::open(file.c_str(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, 0600));
    throwIfFailed(descriptor.number());
    for (std::string_view left = content; !left.empty();) {
        const ssize_t count = ::write(descriptor.number(), left.data(), left.size());
        throwIfFailed(count);
        left.remove_prefix(static_cast<std::size_t>(count));
    }
    throwIfFailed(::fsync(descriptor.number()));
}

}  // namespace

std::string clientConfiguration(const std::string& baseURL, const std::string& brand,
                                const Household& household) {
    std::string json = "{\n  \"version\": 1,\n  ";
    json += memberJSON("parentProfileID", household.parentProfileID);
    json += ",\n  ";
    json += memberJSON("brand", brand);
    json += ",\n  \"development\": true,\n  \"services\": {";
    for (const Route& route : routes()) {
        json += &route == &routes().front() ? "\n    " : ",\n    ";
        json += serviceJSON(route, baseURL, household);
    }
    json += "\n  }\n}\n";
    return json;
}

void writePrivateFile(const std::filesystem::path& file, const std::string& content) {
    auto temporary = file;
    temporary += ".";
    temporary += hexadecimal(randomBytes(4));
    temporary += ".tmp";
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
