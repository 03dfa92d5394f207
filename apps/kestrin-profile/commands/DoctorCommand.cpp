#include <algorithm>
#include <array>
#include <chrono>
#include <cstddef>
#include <exception>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include <fmt/format.h>

#include <HalvardSling/json/JSONDictionary.hpp>
#include <KestrinConfigManager/Configuration.hpp>
#include <KestrinConfigManager/ConfigurationManager.hpp>
#include <KestrinConfigManager/WebService.hpp>
#include <KestrinProfile/service/ConfigurationCheck.hpp>
#include <internal/HTTPDate.hpp>

#include "../Format.hpp"
#include "../Profiles.hpp"
#include "Commands.hpp"

namespace KestrinProfileCLI {

using HalvardSling::JSONDictionary;
using HalvardSling::Origin;
using HalvardSling::Response;
using HalvardSling::SlingError;
using HalvardSling::SlingErrorKind;
using KestrinConfigManager::AnonymousBind;
using KestrinConfigManager::Configuration;
using KestrinConfigManager::ConfigurationManager;
using KestrinConfigManager::ConfigurationProblem;
using KestrinConfigManager::ProblemSeverity;

namespace {

enum class Health { good, doubtful, bad, notChecked };

/// What was found out about one thing.
struct Finding {
    const char* check;
    Health health = Health::good;
    std::string detail;
    std::string advice{};          ///< what to do; empty: nothing
    ExitCode code = ExitCode::ok;  ///< if it is bad
};

const char* nameOf(Health health) {
    static constexpr std::array<const char*, 4> names{"ok", "warning", "error", "not checked"};
    return names.at(static_cast<std::size_t>(health));
}

Style styleOf(Health health) {
    static constexpr std::array styles{Style::good, Style::strong, Style::bad, Style::faint};
    return styles.at(static_cast<std::size_t>(health));
}

Finding badFinding(const char* check, const Failure& failure) {
    return {check, Health::bad, failure.message, failure.advice, failure.code};
}

/// Looks at one thing after the other; what depends on something bad is not looked at.
class Doctor {
  public:
    explicit Doctor(Session& session) : session_(session) {}

    void examine() {
        if (!examineConfiguration()) return;
        const auto recording = session_.record();
        try {
            session_.configure();
        } catch (const CommandError& error) {
            findings_.push_back(badFinding("state", error.failure));
            return;
        }
        if (session_.options.dryRun) {
            findings_.push_back({"reach", Health::notChecked, "a dry run asks nobody"});
            return;
        }
        static_cast<void>(session_.waitFor(session_.household().warmUp()));
        bool isReached = false;
        for (const auto& exchange : recording->exchanges())
            isReached = examineHost(exchange) || isReached;
        if (!isReached)
            noteSilence();
        else if (examineBind())
            examineAccess();
    }

    [[nodiscard]] ExitCode report() const {
        const auto bad = std::ranges::find(findings_, Health::bad, &Finding::health);
        const ExitCode code = bad == findings_.end() ? ExitCode::ok : bad->code;
        if (session_.options.json)
            printJSON(code);
        else
            printForPeople();
        return code;
    }

  private:
    /// @return whether there is one to go on with
    bool examineConfiguration() {
        const auto file = session_.configurationFile();
        const auto result = KestrinConfigManager::loadConfiguration(file);
        const auto* const configuration = std::get_if<Configuration>(&result);
        const auto problems = configuration != nullptr
                                  ? KestrinProfile::checkConfiguration(*configuration)
                                  : std::get<std::vector<ConfigurationProblem>>(result);
        const auto errors =
            std::ranges::count(problems, ProblemSeverity::error, &ConfigurationProblem::severity);
        if (errors > 0 || configuration == nullptr) {
            const auto& first = *std::ranges::find(problems, ProblemSeverity::error,
                                                   &ConfigurationProblem::severity);
            const auto count = countOf(static_cast<std::size_t>(errors), "problem", "problems");
            findings_.push_back({"configuration", Health::bad,
                                 fmt::format("{} has {}, first {}: {}", file.string(), count,
                                             first.path, first.message),
                                 "see all of them: kestrin-profile config check; or name another "
                                 "file with --config",
                                 ExitCode::usage});
            return false;
        }
        const std::size_t services = configuration->services ? configuration->services->size() : 0;
        findings_.push_back(
            {"configuration", problems.empty() ? Health::good : Health::doubtful,
             fmt::format("{}: {}, {}", file.string(), countOf(services, "service", "services"),
                         countOf(problems.size(), "warning", "warnings")),
             problems.empty() ? "" : "see them: kestrin-profile config check"});
        return true;
    }

    /// Nobody answers, which is an error in any case.
    void noteSilence() {
        if (std::ranges::find(findings_, Health::bad, &Finding::health) == findings_.end())
            findings_.push_back({"reach", Health::bad, "the configuration names no service",
                                 "see what it names: kestrin-profile config show",
                                 ExitCode::network});
        findings_.push_back({"bind", Health::notChecked, "no service answers"});
    }

    /// @return whether it answers
    bool examineHost(const Exchange& exchange) {
        const Origin& origin = exchange.request.url().origin();
        if (!exchange.result) {
            findings_.push_back({"reach", Health::bad, origin.text() + " does not answer",
                                 "try again later", ExitCode::network});
            return false;
        }
        if (const auto* const error = std::get_if<SlingError>(&*exchange.result)) {
            const bool isTLS = error->kind() == SlingErrorKind::tls;
            findings_.push_back(
                badFinding(isTLS ? "tls" : "reach", describe(std::make_exception_ptr(*error))));
            return false;
        }
        const auto& reply = std::get<Response>(*exchange.result);
        const auto time = std::chrono::ceil<std::chrono::milliseconds>(reply.timings().total);
        findings_.push_back({"reach", Health::good,
                             fmt::format("{} answers, in {} ms", origin.text(), time.count())});
        examineTLS(origin);
        examineClock(origin, reply, exchange.ended);
        return true;
    }

    void examineTLS(const Origin& origin) {
        if (origin.scheme == "https")
            findings_.push_back({"tls", Health::good, origin.text() + " is who it says it is"});
        else if (origin.isLoopback())
            findings_.push_back({"tls", Health::good, "not needed on this machine"});
        else
            findings_.push_back({"tls", Health::doubtful,
                                 origin.text() + " is talked to in cleartext, tokens included",
                                 "use https for anything but development"});
    }

    void examineClock(const Origin& origin, const Response& reply,
                      std::chrono::system_clock::time_point now) {
        const auto text = reply.headers().value("Date");
        const auto date = text ? KestrinInternal::parseHTTPDate(*text, now) : std::nullopt;
        if (!date) {
            findings_.push_back(
                {"clock", Health::notChecked, origin.text() + " does not say what time it is"});
            return;
        }
        constexpr std::chrono::seconds little{60};
        const auto ahead = std::chrono::round<std::chrono::seconds>(now - *date);
        const auto distance = std::chrono::abs(ahead);
        const std::string detail =
            distance <= little
                ? "agrees with " + origin.text()
                : fmt::format("{} {} that of {}", ageText(distance),
                              ahead > ahead.zero() ? "ahead of" : "behind", origin.text());
        if (distance <= little)
            findings_.push_back({"clock", Health::good, detail});
        else if (distance <= AnonymousBind::leeway)
            findings_.push_back({"clock", Health::doubtful, detail, setClock});
        else
            findings_.push_back({"clock", Health::bad, detail, setClock, ExitCode::serviceError});
    }

    /// @return whether there is one
    bool examineBind() {
        try {
            const std::string profileID = actingProfileID(session_);
            const auto before = ConfigurationManager::sharedInstance().heldBinds().binds;
            const auto bind =
                session_.waitFor(session_.household().session(profileID).withoutRepeats().bind());
            const bool wasHeld = std::ranges::find(before, bind) != before.end();
            std::string detail = fmt::format("{} for {}", wasHeld ? "held" : "obtained", profileID);
            using namespace std::chrono_literals;
            constexpr std::chrono::sys_days ages = 9999y / 1 / 1;  // what a date can say
            if (const auto until = bind.validUntil(); until && *until < ages)
                detail += ", good until " + dateText(*until, false);
            findings_.push_back({"bind", Health::good, std::move(detail)});
            profileID_ = profileID;
            return true;
        } catch (...) {
            addFailure("bind");
            return false;
        }
    }

    void examineAccess() {
        try {
            const auto acting = session_.household().session(profileID_).withoutRepeats();
            const auto users = session_.waitFor(acting.profiles());
            findings_.push_back({"access", Health::good,
                                 fmt::format("the service shows {} {}", profileID_,
                                             countOf(users.size(), "profile", "profiles"))});
        } catch (...) {
            addFailure("access");
        }
    }

    void addFailure(const char* check) {
        session_.interruption().check();
        findings_.push_back(badFinding(check, describe(std::current_exception())));
    }

    void printForPeople() const {
        constexpr std::size_t columns = 13;
        for (const auto& finding : findings_) {
            session_.terminal.line(
                fmt::format("{}  {}  {}",
                            session_.terminal.styled(styleOf(finding.health),
                                                     padded(nameOf(finding.health), columns)),
                            padded(finding.check, columns), printable(finding.detail)));
            if (!finding.advice.empty())
                session_.terminal.line(padded({}, 2 * columns + 4) + finding.advice);
        }
    }

    void printJSON(ExitCode code) const {
        std::vector<JSONDictionary> checks;
        for (const auto& finding : findings_) {
            JSONDictionary& check = checks.emplace_back();
            check.setText("check", finding.check);
            check.setText("state", nameOf(finding.health));
            check.setText("detail", finding.detail);
            if (!finding.advice.empty()) check.setText("advice", finding.advice);
        }
        JSONDictionary result;
        result.setDictionaries("checks", checks);
        result.setInteger("exitCode", static_cast<int>(code));
        session_.terminal.json(result);
    }

    static constexpr const char* setClock =
        "set this machine's clock: whether a bind has expired is told by it";

    Session& session_;
    std::vector<Finding> findings_;
    std::string profileID_;
};

ExitCode examine(Session& session) {
    Doctor doctor(session);
    doctor.examine();
    return doctor.report();
}

}  // namespace

void addDoctorCommand(CLI::App& app, Command& chosen) {
    app.add_subcommand("doctor",
                       "Check configuration, way to the service, TLS, clock and bind, and say what "
                       "to do")
        ->callback([&chosen] { chosen = &examine; });
}

}  // namespace KestrinProfileCLI
