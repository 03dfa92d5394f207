#include "Later.hpp"

#include <chrono>
#include <exception>
#include <map>
#include <memory>
#include <optional>
#include <utility>

#include <fmt/format.h>

#include "Format.hpp"
#include "OutboxFile.hpp"

namespace KestrinProfileCLI {

using HalvardSling::JSONDictionary;
using KestrinHousehold::LaterSession;
using KestrinHousehold::OutboxEntry;
using Kind = KestrinHousehold::OutboxEvent::Kind;
using Seconds = std::chrono::duration<double>;

namespace {

using WriteItem =
    std::function<LaterSession::Kept(const LaterSession& later, const std::string& item)>;

Seconds timeOf(const LaterOptions& options) {
    constexpr Seconds longest{3600};
    if (const auto time = secondsOf(options.seconds, Seconds(0), longest)) return *time;
    throw CommandError({ExitCode::usage, fmt::format("'{}' is not a time", options.seconds),
                        "give --later=SECONDS from 0 to 3600, or --later for 3"});
}

/// Items on their way into the outbox, and what the service says of them.
class Keeping {
  public:
    Keeping(Session& session, const std::vector<BatchItem>& items)
        : session_(session), items_(items) {}

    /// Hands all items to the outbox and waits until each is kept or not.
    void keep(const LaterSession& later, const WriteItem& write) {
        for (std::size_t index = 0; index < items_.size(); ++index)
            begin(index, later, write);
        static_cast<void>(session_.interruption().wait(
            [&] { return arrivals_->numbers.size() + arrivals_->errors.size() == items_.size(); }));
    }

    [[nodiscard]] bool hasKept() const { return !arrivals().numbers.empty(); }

    /// Prints what became of all.
    [[nodiscard]] ExitCode report(const OpenOutbox& outbox) {
        const auto fates = outbox.fates();
        const auto [numbers, errors] = arrivals();
        Tally tally;
        for (const auto& [index, error] : errors)
            failures_.emplace(index, describe(error));
        for (const auto& [index, number] : numbers) {
            const auto fate = fates.find(number);
            tally.add(fate == fates.end() ? nullptr : &fate->second);
            if (fate != fates.end() && fate->second.kind == Kind::refused)
                failures_.emplace(index, failureOf(fate->second.entry));
        }
        print(tally, numbers.size());
        if (!tally.reason.empty())
            session_.terminal.note("not sent yet: " + printable(tally.reason));
        session_.interruption().check();
        if (failures_.empty()) return ExitCode::ok;
        const auto& [index, failure] = *failures_.begin();
        session_.report(about(items_[index], failure));
        return failure.code;
    }

  private:
    /// Shared: after an interruption an event may still be on its way.
    struct Arrivals {
        std::map<std::size_t, OpenOutbox::Number> numbers;
        std::map<std::size_t, std::exception_ptr> errors;
    };

    void begin(std::size_t index, const LaterSession& later, const WriteItem& write) {
        auto& interruption = session_.interruption();
        write(later, items_[index].text)
            .subscribe(
                [arrivals = arrivals_, &interruption, index](const OutboxEntry& entry) {
                    interruption.notify([&] { arrivals->numbers.emplace(index, entry.number); });
                },
                [arrivals = arrivals_, &interruption, index](const std::exception_ptr& error) {
                    interruption.notify([&] { arrivals->errors.emplace(index, error); });
                });
    }

    [[nodiscard]] Arrivals arrivals() const {
        Arrivals copy;
        session_.interruption().notify([&] { copy = *arrivals_; });
        return copy;
    }

    [[nodiscard]] static Failure failureOf(const OutboxEntry& entry) {
        constexpr int notFound = 404;
        const bool isMissing = entry.refusal->status == notFound;
        return {isMissing ? ExitCode::notFound : ExitCode::validation,
                "the service refuses it: " + textOf(*entry.refusal),
                "see what was refused: kestrin-profile outbox list",
                {}};
    }

    void print(const Tally& tally, std::size_t kept) const {
        if (session_.options.json) return session_.terminal.json(summary(tally, kept));
        session_.terminal.line(items_.size() == 1 ? textOfOne(tally, kept)
                                                  : fmt::format("kept {} of {}; {}", kept,
                                                                items_.size(), tally.text()));
    }

    [[nodiscard]] static std::string textOfOne(const Tally& tally, std::size_t kept) {
        if (kept == 0) return "not kept";
        // "1 sent" and the like
        return "kept; " + tally.text().substr(2);
    }

    [[nodiscard]] JSONDictionary summary(const Tally& tally, std::size_t kept) const {
        std::vector<JSONDictionary> failures;
        for (const auto& [index, failure] : failures_)
            failures.push_back(documentOf(items_[index], failure));
        JSONDictionary result;
        result.setInteger("kept", static_cast<std::int64_t>(kept));
        tally.addTo(result);
        result.setDictionaries("failures", failures);
        return result;
    }

    Session& session_;
    const std::vector<BatchItem>& items_;
    std::shared_ptr<Arrivals> arrivals_ = std::make_shared<Arrivals>();
    std::map<std::size_t, Failure> failures_;
};

}  // namespace

void addLater(CLI::App& command, LaterOptions& options) {
    command.add_flag("--later{3}", options.seconds,
                     "Keep it on the disk, and try for so many seconds (--later=SECONDS, default "
                     "3) to send it; what is not sent then, 'outbox send' sends");
}

bool isLater(const Session& session, const LaterOptions& options) {
    return !options.seconds.empty() && !session.options.dryRun;
}

ExitCode keepLater(Session& session, const LaterOptions& options,
                   const KestrinHousehold::ProfileSession& acting,
                   const std::vector<BatchItem>& items, const WriteItem& write) {
    const Seconds time = timeOf(options);
    OpenOutbox outbox(session);
    Keeping keeping(session, items);
    keeping.keep(outbox.later(acting), write);
    if (keeping.hasKept()) outbox.settle(time);
    outbox.close();
    return keeping.report(outbox);
}

ExitCode keepLater(Session& session, const LaterOptions& options,
                   const KestrinHousehold::ProfileSession& acting, const std::string& what,
                   const std::function<LaterSession::Kept(const LaterSession& later)>& write) {
    const std::vector<BatchItem> one{{what, {}}};
    return keepLater(
        session, options, acting, one,
        [&](const LaterSession& later, const std::string& /*what*/) { return write(later); });
}

}  // namespace KestrinProfileCLI
