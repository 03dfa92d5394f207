#include <algorithm>
#include <initializer_list>
#include <optional>
#include <ranges>
#include <string_view>
#include <utility>

#include <KestrinConfigManager/WebService.hpp>
#include <KestrinProfile/model/internal/OperationTable.hpp>
#include <KestrinProfile/params/AnonymousBindParams.hpp>
#include <KestrinProfile/params/ProfileParams.hpp>
#include <KestrinProfile/params/SearchParams.hpp>
#include <KestrinProfile/params/UserParams.hpp>
#include <KestrinProfile/service/ConfigurationCheck.hpp>
#include <internal/Quoting.hpp>

namespace KestrinProfile {

using internal::OperationRow;
using internal::operationTable;
using KestrinConfigManager::AnonymousBind;
using KestrinConfigManager::BodyForm;
using KestrinConfigManager::ConfigurationProblem;
using KestrinConfigManager::ProblemSeverity;
using KestrinConfigManager::ServiceTable;
using KestrinConfigManager::TextMap;
using KestrinConfigManager::URLTemplate;
using KestrinConfigManager::WebService;
using KestrinInternal::inQuotes;
using KestrinInternal::listInQuotes;
using KestrinInternal::suggestion;

namespace {

using Problems = std::vector<ConfigurationProblem>;

/// The placeholders that an operation's record fills, if the caller fills the record.
std::optional<TextMap> fillable(const OperationRow& row) {
    using Record = OperationRow::Record;
    const AnonymousBind bind;
    ProfileParams list(bind, "");
    list.videoID = list.showID = list.userName = "";
    if (row.record == Record::bind) return AnonymousBindParams("", row.operation).URLMapping();
    if (row.record == Record::list) return list.URLMapping();
    if (row.record == Record::search) return SearchParams("", Types::none, bind, "").URLMapping();
    return UserParams(bind).URLMapping();  // The one operation without a record is not checked.
}

/// What an operation does, and the methods for that.
struct Fitting {
    std::string_view deed;
    std::vector<std::string_view> methods;
};

Fitting fitting(OperationRow::Effect effect) {
    if (effect == OperationRow::Effect::write) return {"writes", {"POST", "PUT", "PATCH"}};
    if (effect == OperationRow::Effect::removal) return {"removes", {"DELETE", "POST"}};
    return {"reads", {"GET", "POST"}};
}

/// Collects what is wrong with one service.
class ServiceCheck {
  public:
    ServiceCheck(const OperationRow& row, const WebService& service, std::string path,
                 Problems& problems)
        : row_(row), service_(service), path_(std::move(path)), problems_(problems) {}

    void run() const {
        checkMethod();
        checkURL();
        checkQuery();
        checkBody();
    }

  private:
    void report(std::string_view place, std::string message) const {
        problems_.push_back({path_ + std::string(place), std::move(message)});
    }

    void checkMethod() const {
        const auto [deed, methods] = fitting(row_.effect);
        if (std::ranges::find(methods, service_.method) == methods.end())
            report(".method", inQuotes(service_.method) + " does not fit an operation that " +
                                  std::string(deed) + "; fitting are " + listInQuotes(methods));
    }

    void checkURL() const {
        const auto placeholders = service_.url.placeholders();
        const TextMap filled = fillable(row_).value_or(TextMap());
        const auto known = std::views::keys(filled);
        for (const std::string_view each : placeholders)
            if (!filled.contains(each))
                report(".url", "the operation has no value for " + inQuotes(each) +
                                   suggestion(each, known));
        if (!row_.placeholder.empty() &&
            std::ranges::find(placeholders, row_.placeholder) == placeholders.end())
            report(".url", "lacks " + inQuotes(row_.placeholder) +
                               ", without which the request does not say what it is about");
    }

    void checkQuery() const {
        for (const auto& [name, value] : service_.query)
            if (!URLTemplate(value).placeholders().empty())
                report(".query[" + inQuotes(name) + "]",
                       "placeholders are filled in the url only; write the parameter there");
    }

    void checkBody() const {
        const bool isSent = service_.body == BodyForm::automatic || service_.body == BodyForm::json;
        if (row_.body != OperationRow::Body::none && !isSent)
            report(".body", inQuotes(name(service_.body)) +
                                " drops what the operation sends; leave it out or write \"json\"");
    }

    const OperationRow& row_;
    const WebService& service_;
    std::string path_;
    Problems& problems_;
};

}  // namespace

std::vector<ConfigurationProblem> checkConfiguration(
    const KestrinConfigManager::Configuration& configuration) {
    const auto names = std::views::transform(operationTable, &OperationRow::rawValue);
    const ServiceTable none;
    const ServiceTable& services = configuration.services ? *configuration.services : none;
    Problems problems;
    for (const auto& [name, service] : services) {
        std::string path = "$.services[" + inQuotes(name) + "]";
        const auto row = std::ranges::find(operationTable, name, &OperationRow::rawValue);
        if (row == operationTable.end())
            problems.push_back(
                {std::move(path), "no operation has this name" + suggestion(name, names)});
        else if (row->operation != ProfileOperation::testOperation)
            ServiceCheck(*row, service, std::move(path), problems).run();
    }
    for (const OperationRow& row : operationTable)
        if (row.operation != ProfileOperation::testOperation &&
            services.find(row.rawValue) == nullptr)
            problems.push_back({"$.services",
                                "has no " + inQuotes(row.rawValue) + ": the operation always fails",
                                ProblemSeverity::warning});
    return problems;
}

}  // namespace KestrinProfile
