// The command line of kestrin-profile: whatever is typed, one word a line. It runs dry, so nothing
// is sent, in a home of its own, and what it prints goes nowhere.

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <vector>

#include <KestrinConfigManager/ConfigurationManager.hpp>
#include <kestrin-profile/ExitCode.hpp>
#include <kestrin-profile/Interruption.hpp>
#include <kestrin-profile/Program.hpp>
#include <kestrin-profile/Session.hpp>

#include "fuzz/Expect.hpp"
#include "fuzz/Folder.hpp"

namespace {

using Fuzz::expect;
using KestrinProfileCLI::ExitCode;

/// A home with a configuration.
class Home {
  public:
    Home() {
        for (const char* const variable : {"HOME", "XDG_STATE_HOME", "XDG_CONFIG_HOME"})
            expect(setenv(variable, (folder_ / "").c_str(), 1) == 0, "a variable can be set");
        for (const char* const variable :
             {"KESTRIN_PROFILE_PROFILE", "KESTRIN_PROFILE_BRAND", "KESTRIN_PROFILE_SERVICE_URL",
              "KESTRIN_PROFILE_SERVICE_SECRET"})
            unsetenv(variable);
        std::ofstream(configuration_) << configured;
        setenv("KESTRIN_PROFILE_CONFIG", configuration_.c_str(), 1);
        // Nobody is asked, and what reads standard input is at its end at once.
        expect(std::freopen("/dev/null", "r", stdin) != nullptr, "the system has /dev/null");
        nowhere_ = std::fopen("/dev/null", "w");
        expect(nowhere_ != nullptr, "the system has /dev/null");
    }
    Home(const Home&) = delete;
    Home& operator=(const Home&) = delete;
    ~Home() { static_cast<void>(std::fclose(nowhere_)); }

    [[nodiscard]] ExitCode run(const std::vector<std::string>& arguments) {
        KestrinProfileCLI::Session session(interruption_, nowhere_, nowhere_);
        return KestrinProfileCLI::runProgram(session, arguments);
    }

  private:
    static constexpr const char* configured =
        R"({"version":1,"parentProfileID":"parent","brand":"b","development":true,"services":{
            "personalization-bind-anonymous":{"method":"POST","body":"json",
                "url":"http://127.0.0.1:9/bind"},
            "personalization-get-profiles":{"url":"http://127.0.0.1:9/profiles"},
            "personalization-create-profile":{"method":"POST","body":"json",
                "url":"http://127.0.0.1:9/profile"},
            "personalization-history-get":{"url":"http://127.0.0.1:9/history"},
            "personalization-history-add-video":{"method":"PUT","body":"json",
                "url":"http://127.0.0.1:9/history?video=%VIDEO%"},
            "personalization-favorites-add-shows":{"method":"POST","body":"json",
                "url":"http://127.0.0.1:9/favorites"},
            "personalization-watchlist-delete-video":{"method":"DELETE",
                "url":"http://127.0.0.1:9/watchlist?video=%VIDEO%"},
            "personalization-searchhistory-add":{"method":"POST",
                "url":"http://127.0.0.1:9/searches?search=%SEARCH%"}}})";

    Fuzz::Folder folder_{"commands"};
    std::filesystem::path configuration_ = folder_ / "config.json";
    std::FILE* nowhere_ = nullptr;
    KestrinProfileCLI::Interruption interruption_;
};

std::vector<std::string> wordsOf(std::string_view text) {
    std::vector<std::string> words;
    while (!text.empty()) {
        const std::size_t end = std::min(text.find('\n'), text.size());
        words.emplace_back(text.substr(0, end));
        text.remove_prefix(std::min(text.size(), end + 1));
    }
    return words;
}

/// Whether a word is about a file, of which any of this machine could be named, or about running
/// dry, which a flag's value ("--dry-run=false") ends.
bool isOurs(const std::string& word) {
    return word.starts_with("--from") || word.starts_with("--config") ||
           word.starts_with("--secret-file") || word.starts_with("--dry-run");
}

/// Whether this is an exit code that is documented.
bool isKnown(ExitCode code) {
    const auto known = KestrinProfileCLI::exitCodeMeanings();
    return std::ranges::any_of(known, [code](const auto& each) { return each.first == code; });
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static Home home;
    auto words = wordsOf(Fuzz::textOf(data, size));
    // A zero byte ends an argument before it comes to a program.
    for (auto& word : words)
        word.erase(std::min(word.find('\0'), word.size()));
    if (std::ranges::any_of(words, &isOurs)) return 0;
    words.insert(words.begin(), "--dry-run");
    const ExitCode code = home.run(words);
    KestrinConfigManager::ConfigurationManager::sharedInstance().dropBinds();
    expect(isKnown(code), "an exit code is one of those that are documented");
    expect(code != ExitCode::network, "a dry run has no network");
    return 0;
}
