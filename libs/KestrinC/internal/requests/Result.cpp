#include <KestrinC/internal/requests/Result.hpp>
#include <KestrinConfigManager/BindStore.hpp>
#include <KestrinHousehold/error/Error.hpp>
#include <KestrinProfile/service/Error.hpp>

namespace KestrinC::internal {

namespace {

using HalvardSling::SlingError;
using HalvardSling::SlingErrorKind;
using KestrinProfile::ErrorNotice;

constexpr kestrin_text text(std::string_view value) noexcept {
    return {value.data(), value.size()};
}

/// Results for which no memory is needed. They are never released.
struct Fixed {
    kestrin_error error{};
    kestrin_result result{};

    Fixed(SlingErrorKind kind, std::string_view message, kestrin_outcome outcome) noexcept {
        error.size = sizeof error;
        error.domain = text(SlingError::domain());
        error.code = static_cast<int32_t>(kind);
        error.notice = static_cast<int32_t>(
            kind == SlingErrorKind::cancelled ? ErrorNotice::nothing : ErrorNotice::broken);
        error.message = text(message);
        error.advice = text(advice(kind));
        error.request_id = error.problem_type = error.problem_title = error.problem_detail =
            text("");
        result.size = sizeof result;
        result.outcome = outcome;
        result.error = &error;
    }
    Fixed(const Fixed&) = delete;
    Fixed& operator=(const Fixed&) = delete;
};

Fixed& cancelled() noexcept {
    static Fixed only(SlingErrorKind::cancelled, "the request was cancelled", KESTRIN_CANCELLED);
    return only;
}

Fixed& outOfMemory() noexcept {
    static Fixed only(SlingErrorKind::outOfMemory,
                      "there is not enough memory for the request or its result", KESTRIN_ERROR);
    return only;
}

bool isFixed(const kestrin_result* result) noexcept {
    return result == &cancelled().result || result == &outOfMemory().result;
}

/// What only an error of the network library says.
void showReply(const SlingError& error, kestrin_error& structure, Arena& arena) {
    structure.status = error.statusCode().value_or(0);
    const auto keep = [&arena](const std::string& value) { return shown(*arena.keep(value)); };
    if (const auto* const context = error.context())
        structure.request_id = keep(context->requestID);
    if (const auto* const problem = error.problem()) {
        structure.problem_type = keep(problem->type);
        structure.problem_title = keep(problem->title);
        structure.problem_detail = keep(problem->detail);
    }
}

}  // namespace

void show(const std::exception_ptr& error, kestrin_error& structure, Arena& arena) {
    structure = outOfMemory().error;  // as far as the texts are concerned that may stay empty
    const auto* const description = arena.keep(KestrinHousehold::describe(error));
    structure.domain = shown(description->domain);
    structure.code = description->code;
    structure.notice = static_cast<kestrin_notice>(KestrinHousehold::whatToShow(error));
    structure.message = shown(description->message);
    structure.advice = shown(description->advice);
    KestrinProfile::visitError(
        error, [&](const SlingError& known) { showReply(known, structure, arena); },
        [](const std::exception&) {});
}

void setValue(Result& result, const HalvardSling::Response& value) {
    kestrin_response response{};
    response.size = sizeof response;
    response.status = value.status();
    std::vector<kestrin_header> headers;
    headers.reserve(value.headers().size());
    for (const auto& [name, content] : value.headers())
        headers.push_back({shown(name), shown(content)});
    response.headers.count = headers.size();
    response.headers.first =
        headers.empty() ? nullptr : result.arena.keep(std::move(headers))->data();
    response.body = shown(value.body());
    result.response = result.arena.keep(response);
}

void setValue(Result& result, const KestrinConfigManager::HeldBinds& value) {
    show(value.binds, result.binds, result.arena);
    show(value.selectedProfileID, result.text, result.arena);
}

kestrin_result* errorResult(const std::exception_ptr& error) noexcept {
    try {
        // There is nothing to show of an end that somebody asked for.
        const bool isWanted = KestrinHousehold::whatToShow(error) == ErrorNotice::nothing;
        Result* const result = made<Result>(isWanted ? KESTRIN_CANCELLED : KESTRIN_ERROR);
        try {
            kestrin_error structure{};
            show(error, structure, result->arena);
            result->error = result->arena.keep(structure);
        } catch (...) {
            retired(result, "a result");
            throw;
        }
        return result;
    } catch (...) {
        return outOfMemoryResult();
    }
}

kestrin_result* cancelledResult() noexcept {
    return &cancelled().result;
}

kestrin_result* outOfMemoryResult() noexcept {
    return &outOfMemory().result;
}

void release(kestrin_result* result, const char* function) noexcept {
    if (!isFixed(result)) retired(static_cast<Result*>(result), function);
}

}  // namespace KestrinC::internal

void kestrin_result_release(kestrin_result* result) {
    KestrinC::internal::release(result, "kestrin_result_release");
}
