// Requests that the application sends.

#include <atomic>
#include <cstdint>
#include <exception>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <HalvardSling/http/internal/OutOfMemory.hpp>
#include <HalvardSling/transport/Transport.hpp>
#include <KestrinC/internal/border/Handles.hpp>
#include <KestrinC/internal/hooks/Hooks.hpp>
#include <KestrinC/internal/records/Records.hpp>
#include <internal/Guarded.hpp>

namespace KestrinC::internal {

namespace {

using HalvardSling::CheckedRequest;
using HalvardSling::Headers;
using HalvardSling::Response;
using HalvardSling::SlingError;
using HalvardSling::SlingErrorKind;
using HalvardSling::TransferID;
using HalvardSling::TransportCompletion;
using HalvardSling::TransportResult;

/// The transfers of a transport whose completion was neither called nor cancelled.
class OpenTransfers {
  public:
    TransferID add(TransportCompletion completion) {
        // Of the process: an application may tell transfers of several transports apart by them.
        static std::atomic<TransferID> last{0};
        const TransferID id = ++last;
        completions_.lock()->emplace(id, std::move(completion));
        return id;
    }

    /// The completion of a transfer, if it still has one; who takes it may call it.
    [[nodiscard]] TransportCompletion take(TransferID id) noexcept {
        auto node = completions_.lock()->extract(id);
        return node.empty() ? TransportCompletion() : std::move(node.mapped());
    }

    /// The completion of any transfer, if there is one.
    [[nodiscard]] std::pair<TransferID, TransportCompletion> takeFirst() noexcept {
        const auto completions = completions_.lock();
        if (completions->empty()) return {};
        auto node = completions->extract(completions->begin());
        return {node.key(), std::move(node.mapped())};
    }

  private:
    KestrinInternal::Guarded<std::map<TransferID, TransportCompletion>> completions_;
};

}  // namespace

}  // namespace KestrinC::internal

/// A request on its way, and how C sees it.
struct kestrin_transfer {
    kestrin_transfer(std::shared_ptr<KestrinC::internal::OpenTransfers> openTransfers,
                     HalvardSling::TransferID transferID, HalvardSling::CheckedRequest checked);

    std::shared_ptr<KestrinC::internal::OpenTransfers> open;
    HalvardSling::TransferID id;
    HalvardSling::CheckedRequest request;
    std::vector<kestrin_header> headers{};
    kestrin_transfer_request structure{};
};

namespace KestrinC::internal {

template <>
inline constexpr const char* handleName<kestrin_transfer> = "the transfer";

namespace {

/// What a transfer ends with whose transport ends before it.
TransportResult transportEnded() noexcept {
    try {
        return SlingError(SlingErrorKind::cancelled, "the transport was replaced");
    } catch (...) {
        return HalvardSling::internal::outOfMemoryError();
    }
}

/// The application's functions as a transport.
class HookTransport final : public HalvardSling::Transport {
  public:
    explicit HookTransport(Hooks<kestrin_transport> hooks)
        : hooks_(std::move(hooks)), open_(std::make_shared<OpenTransfers>()) {}

    ~HookTransport() override {
        for (auto next = open_->takeFirst(); next.second; next = open_->takeFirst()) {
            cancelHook(next.first);
            next.second(transportEnded());
        }
    }

    TransferID send(CheckedRequest request, TransportCompletion completion) override {
        const TransferID id = open_->add(std::move(completion));
        try {
            auto* const transfer = made<kestrin_transfer>(open_, id, std::move(request));
            hooks_.functions.send(hooks_.context(), &transfer->structure, transfer);
        } catch (...) {
            static_cast<void>(open_->take(id));
            throw;
        }
        return id;
    }

    void cancel(TransferID transfer) noexcept override {
        if (open_->take(transfer)) cancelHook(transfer);
    }

  private:
    void cancelHook(TransferID transfer) const noexcept {
        if (hooks_.functions.cancel != nullptr) hooks_.functions.cancel(hooks_.context(), transfer);
    }

    const Hooks<kestrin_transport> hooks_;
    const std::shared_ptr<OpenTransfers> open_;
};

Headers headersOf(const kestrin_headers& given, const Path& path) {
    if (given.count > 0 && given.first == nullptr) path.refuse("has a count, but no elements");
    Headers headers;
    for (std::size_t index = 0; index < given.count; ++index) {
        const auto name = bytesOf(given.first[index].name, Path(path, index));
        if (!name || name->empty()) continue;  // It is none.
        headers.add(*name, bytesOf(given.first[index].value, Path(path, index)).value_or(""));
    }
    return headers;
}

Response responseOf(const kestrin_transfer_reply* given) {
    const Path path("reply");
    const auto reply = sized(given, path);
    if (reply.status < 100 || reply.status > 999)
        Path(path, "status").refuse("is " + std::to_string(reply.status));
    return Response({.status = reply.status,
                     .headers = headersOf(reply.headers, Path(path, "headers")),
                     .body = std::string(bytesOf(reply.body, Path(path, "body")).value_or("")),
                     .effectiveURL = std::string(
                         bytesOf(reply.effective_url, Path(path, "effective_url")).value_or("")),
                     .timings = {}});
}

TransportResult resultOf(Response response, const CheckedRequest& request) {
    if (response.body().size() > request->policy.maxBodyBytes)
        return SlingError(SlingErrorKind::tooLarge,
                          "the reply's body has " + std::to_string(response.body().size()) +
                              " bytes; " + std::to_string(request->policy.maxBodyBytes) +
                              " are allowed");
    return response;
}

/// What `make` makes of a request, or the failure to. No memory is needed to tell of its lack.
template <class Make>
TransportResult outcomeOf(const Make& make, const CheckedRequest& request,
                          std::exception_ptr& problem) noexcept {
    try {
        try {
            return make(request);
        } catch (const Refused& refused) {
            problem = std::current_exception();
            return SlingError(
                SlingErrorKind::malformedReply,
                std::string("the application's transport is at fault: ") + refused.what());
        }
    } catch (...) {
        problem = std::current_exception();
        return HalvardSling::internal::outOfMemoryError();
    }
}

template <class Make>
kestrin_status finish(const char* function, kestrin_transfer* handle, const Make& make) noexcept {
    return guarded(function, [&] {
        auto& transfer = inUse(handle, function);
        const auto open = transfer.open;
        const auto id = transfer.id;
        std::exception_ptr problem;
        auto result = outcomeOf(make, transfer.request, problem);
        // The handle ends first: within the completion it is the application's no more.
        retired(handle, function);
        if (const auto completion = open->take(id)) {
            const HalvardSling::TransportThreadScope scope;
            completion(std::move(result));
        }
        if (problem) std::rethrow_exception(problem);
    });
}

}  // namespace

}  // namespace KestrinC::internal

kestrin_transfer::kestrin_transfer(std::shared_ptr<KestrinC::internal::OpenTransfers> openTransfers,
                                   HalvardSling::TransferID transferID,
                                   HalvardSling::CheckedRequest checked)
    : open(std::move(openTransfers)), id(transferID), request(std::move(checked)) {
    using KestrinC::internal::shown;
    const bool hasOwnID = request->headers.value(HalvardSling::requestIDHeader).has_value();
    headers.reserve(request->headers.size() + 1);
    for (const auto& [name, value] : request->headers)
        headers.push_back({shown(name), shown(value)});
    if (!hasOwnID)
        headers.push_back({shown(HalvardSling::requestIDHeader), shown(request.requestID())});
    structure.size = sizeof structure;
    structure.id = id;
    structure.method = shown(request->method);
    structure.url = shown(request->url);
    structure.headers = {headers.data(), headers.size()};
    if (request->body) structure.body = shown(*request->body);
    structure.sends_user_agent = request->sendsUserAgent;
    structure.connect_timeout_ms = request->policy.connectTimeout.count();
    structure.total_timeout_ms = request->policy.totalTimeout.count();
    structure.max_redirects = request->policy.maxRedirects;
    structure.max_body_length = request->policy.maxBodyBytes;
    structure.operation = shown(request->operation);
    structure.path_template = shown(request->pathTemplate);
}

using namespace KestrinC::internal;

kestrin_status kestrin_set_transport(const kestrin_transport* transport) {
    return guarded("kestrin_set_transport", [&] {
        if (transport == nullptr) return HalvardSling::setDefaultTransport(nullptr);
        auto hooks =
            Hooks<kestrin_transport>::taken(transport, "transport", &kestrin_transport::send);
        static_cast<void>(HalvardSling::internal::outOfMemoryError());  // while there is memory
        HalvardSling::setDefaultTransport(std::make_shared<HookTransport>(std::move(hooks)));
    });
}

kestrin_status kestrin_transfer_finish(kestrin_transfer* transfer,
                                       const kestrin_transfer_reply* reply) {
    return finish("kestrin_transfer_finish", transfer, [&](const CheckedRequest& request) {
        return resultOf(responseOf(reply), request);
    });
}

kestrin_status kestrin_transfer_fail(kestrin_transfer* transfer, kestrin_transfer_error error,
                                     kestrin_text message) {
    return finish("kestrin_transfer_fail", transfer, [&](const CheckedRequest& /*request*/) {
        SlingErrorKind kind{};
        read(error, kind, Path("error"));
        std::optional<std::string> text;
        read(message, text, Path("message"));
        if (kind == SlingErrorKind::httpStatus)
            Path("error").refuse("is KESTRIN_HTTP_STATUS; finish the transfer with the reply");
        return TransportResult(
            SlingError(kind, std::move(text).value_or("the application's transport says no more")));
    });
}
