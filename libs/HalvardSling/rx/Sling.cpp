#include <exception>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include <HalvardSling/http/internal/OutOfMemory.hpp>
#include <HalvardSling/json/JSONDictionary.hpp>
#include <HalvardSling/rx/Sling.hpp>
#include <HalvardSling/rx/internal/DecodedBody.hpp>
#include <HalvardSling/rx/internal/ResponseOrigin.hpp>
#include <internal/ASCII.hpp>

namespace HalvardSling {

namespace {

constexpr int firstErrorStatus = 400;

std::optional<ProblemDocument> problemOf(const Response& response) {
    const auto type = response.headers().value("Content-Type").value_or("");
    if (!KestrinInternal::isMediaType(type, "application/problem+json")) return std::nullopt;
    const auto parsed = internal::decodedBody(response);
    const auto* const json = std::get_if<JSONDictionary>(&parsed);
    if (json == nullptr) return std::nullopt;
    ProblemDocument problem;
    for (const auto& [key, member] : {std::pair{"type", &problem.type},
                                      {"title", &problem.title},
                                      {"detail", &problem.detail},
                                      {"instance", &problem.instance}})
        if (const auto text = json->text(key)) *member = *text;
    problem.status = json->integer("status");
    return problem;
}

SlingError statusError(const Response& response) {
    return SlingError::httpStatus(
        response.status(), internal::originText(response),
        {.headers = response.headers(),
         .body = std::string(response.body().substr(0, ErrorReply::maxBodyBytes))},
        problemOf(response));
}

/// The process has no file or no thread left for a transport.
SlingError noTransport(const std::exception& reason) {
    return {SlingErrorKind::cannotConnect,
            std::string("no transport could be set up: ") + reason.what()};
}

/// Sends the error while it is being handled: if the subscriber has no error function, or that
/// throws, the program ends and shows its text.
void emitError(const rxcpp::subscriber<Response>& subscriber, SlingError error) noexcept {
    try {
        throw std::move(error);
    } catch (const SlingError&) {
        subscriber.on_error(std::current_exception());
    }
}

/// What a subscriber gets of an outcome: a reply below 400, or an error that names its request.
TransportResult eventOf(TransportResult result, const CheckedRequest& request) noexcept {
    try {
        if (const auto* const error = std::get_if<SlingError>(&result))
            return error->with(request.context());
        auto& response = std::get<Response>(result);
        if (response.status() >= firstErrorStatus)
            return statusError(response).with(request.context());
        return std::move(response).to(request);
    } catch (const std::bad_alloc&) {
        return internal::outOfMemoryError();
    }
}

void deliver(const rxcpp::subscriber<Response>& subscriber, TransportResult event) {
    if (auto* const error = std::get_if<SlingError>(&event))
        return emitError(subscriber, std::move(*error));
    subscriber.on_next(std::get<Response>(std::move(event)));
    subscriber.on_completed();
}

void send(const CheckedRequest& request, const std::shared_ptr<Transport>& transport,
          const rxcpp::subscriber<Response>& subscriber) {
    const TransferID transfer =
        transport->send(request, [subscriber, request](TransportResult result) noexcept {
            deliver(subscriber, eventOf(std::move(result), request));
        });
    // Where the subscription has ended in the meantime this runs at once. It names the transfer and
    // holds nothing, for whatever it held would live in a cycle with the subscription.
    try {
        subscriber.add([weak = std::weak_ptr(transport), transfer] {
            if (const auto alive = weak.lock()) alive->cancel(transfer);
        });
    } catch (const std::bad_alloc&) {
        transport->cancel(transfer);
        throw;
    }
}

}  // namespace

// Each subscription names its own sending.
Sling::Sling(TransportRequest request)
    : content_(CheckedRequest::of(std::move(request), RequestID())) {}

Sling::Sling(CheckedRequest request) : content_(std::move(request)) {}

Sling::Sling(SlingError problem) : content_(std::move(problem)) {}

const TransportRequest* Sling::request() const noexcept {
    const auto* const request = std::get_if<CheckedRequest>(&content_);
    return request != nullptr ? &**request : nullptr;
}

Observable<Response> Sling::responses(std::shared_ptr<Transport> transport) const {
    return rxcpp::observable<>::create<Response>(
        [content = content_,
         transport = std::move(transport)](const rxcpp::subscriber<Response>& subscriber) {
            if (const auto* const error = std::get_if<SlingError>(&content))
                return emitError(subscriber, *error);
            if (!subscriber.is_subscribed()) return;
            const auto request = std::get<CheckedRequest>(content).with(RequestID::random());
            try {
                send(request, transport ? transport : defaultTransport(), subscriber);
            } catch (const std::bad_alloc&) {
                emitError(subscriber, internal::outOfMemoryError());
            } catch (const std::exception& error) {
                emitError(subscriber, noTransport(error).with(request.context()));
            }
        });
}

}  // namespace HalvardSling
