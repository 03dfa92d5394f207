#include "Batch.hpp"

#include <algorithm>
#include <exception>
#include <map>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include <HalvardSling/json/JSONDictionary.hpp>

#include "Format.hpp"

namespace KestrinProfileCLI {

using HalvardSling::JSONDictionary;

namespace {

class Run {
  public:
    Run(Session& session, const BatchOptions& options, const std::vector<BatchItem>& items,
        const BatchWork& work)
        : session_(session), options_(options), items_(items), work_(work) {}

    /// Works through the items; a signal ends it early.
    void execute() {
        const ConcurrentRequests requests{
            items_.size(), session_.options.dryRun ? 1 : options_.jobs,
            [this](std::size_t index) { return request(index); },
            [this](std::size_t index, const std::exception_ptr& error) {
                end(index, error);
                showProgress();
                return mayEnd() ? NextStep::stop : NextStep::proceed;
            }};
        interrupted_ = !sendAll(session_.interruption(), requests);
        session_.terminal.progress({});
    }

    /// Prints the result.
    [[nodiscard]] ExitCode report() const {
        if (!session_.options.dryRun) printSummary();
        if (interrupted_) throw CommandError::interrupted();
        if (failures_.empty()) return ExitCode::ok;
        const auto& [index, failure] = *failures_.begin();
        session_.report(about(items_[index], failure));
        return failure.code;
    }

  private:
    ConcurrentRequests::Request request(std::size_t index) {
        ++begun_;
        return work_.request(items_[index].text);
    }

    [[nodiscard]] bool mayEnd() const { return options_.failFast && !failures_.empty(); }

    void end(std::size_t index, const std::exception_ptr& error) {
        if (!error || (session_.options.dryRun && wasOnlyShown(error))) {
            ++done_;
            if (work_.wasThere && !work_.wasThere(items_[index].text)) ++absent_;
            return;
        }
        const auto& failure = failures_.emplace(index, describe(error)).first->second;
        if (!session_.options.verbose) return;
        session_.terminal.progress({});
        session_.terminal.note("failed: " + printable(textOf(items_[index], failure)));
    }

    void showProgress() const {
        if (items_.size() < 2 || session_.options.dryRun) return;
        const auto ended = static_cast<std::int64_t>(done_ + failures_.size());
        const auto all = static_cast<std::int64_t>(items_.size());
        session_.terminal.progress(
            fmt::format("{} {} of {}, {} failed", bar(ended, all), ended, all, failures_.size()));
    }

    void printSummary() const {
        if (session_.options.json) return session_.terminal.json(summary());
        std::string text =
            fmt::format("{} {} of {} {}", work_.done, done_ - absent_, items_.size(), work_.where);
        if (absent_ > 0) text += fmt::format("; {} not there", countOf(absent_, "was", "were"));
        if (!failures_.empty()) text += fmt::format("; {} failed", failures_.size());
        if (aborted() > 0) text += fmt::format("; {} aborted", aborted());
        if (untried() > 0) text += fmt::format("; {} not tried", untried());
        session_.terminal.line(text);
    }

    /// How many were in flight when a signal came: the service may have done them or not.
    [[nodiscard]] std::size_t aborted() const { return begun_ - done_ - failures_.size(); }
    [[nodiscard]] std::size_t untried() const { return items_.size() - begun_; }

    [[nodiscard]] JSONDictionary summary() const {
        std::vector<JSONDictionary> failures;
        for (const auto& [index, failure] : failures_)
            failures.push_back(documentOf(items_[index], failure));
        JSONDictionary result;
        result.setInteger("done", static_cast<std::int64_t>(done_));
        result.setInteger("failed", static_cast<std::int64_t>(failures_.size()));
        result.setInteger("aborted", static_cast<std::int64_t>(aborted()));
        result.setInteger("notTried", static_cast<std::int64_t>(untried()));
        if (work_.wasThere) result.setInteger("notThere", static_cast<std::int64_t>(absent_));
        result.setDictionaries("failures", failures);
        return result;
    }

    Session& session_;
    const BatchOptions& options_;
    const std::vector<BatchItem>& items_;
    const BatchWork& work_;
    std::size_t begun_ = 0;
    std::size_t done_ = 0;
    std::size_t absent_ = 0;  // of those done
    bool interrupted_ = false;
    std::map<std::size_t, Failure> failures_;
};

}  // namespace

void addBatch(CLI::App& command, BatchOptions& options, const std::string& item,
              const std::string& description) {
    addBatchItems(command, options.items, item, description);
    command.add_option("--jobs", options.jobs, "How many requests are in flight at once, 1 to 64")
        ->type_name("N")
        ->check(CLI::Range(std::size_t{1}, std::size_t{64}).description(""))
        ->capture_default_str();
    command.add_flag("--fail-fast", options.failFast,
                     "Start no request after a failure; otherwise the rest is still done");
}

ExitCode runBatch(Session& session, const KestrinHousehold::ProfileSession& acting,
                  const BatchOptions& options, const std::vector<BatchItem>& items,
                  const BatchWork& work) {
    static_cast<void>(session.waitFor(acting.bind()));
    Run run(session, options, items, work);
    run.execute();
    return run.report();
}

}  // namespace KestrinProfileCLI
