#pragma once

#include <atomic>
#include <exception>
#include <functional>
#include <string>

#include <HalvardSling/transport/Transport.hpp>

namespace KestrinProfileCLI {

/// The transport of --dry-run: shows the curl command of each request, without its identifier, and
/// sends nothing. Every transfer ends with `SlingErrorKind::cancelled`, on the caller's thread.
class DryRunTransport final : public HalvardSling::Transport {
  public:
    using Show = std::function<void(const std::string& command)>;

    explicit DryRunTransport(Show show) : show_(std::move(show)) {}

    HalvardSling::TransferID send(HalvardSling::CheckedRequest request,
                                  HalvardSling::TransportCompletion completion) override;
    void cancel(HalvardSling::TransferID /*transfer*/) noexcept override {}

  private:
    Show show_;
    std::atomic<HalvardSling::TransferID> last_ = 0;
};

/// Ends a command whose request was only shown.
struct OnlyShown : std::exception {
    [[nodiscard]] const char* what() const noexcept override { return "shown, not sent"; }
};

/// Whether an error of a dry run says that the request was shown.
[[nodiscard]] bool wasOnlyShown(const std::exception_ptr& error);

}  // namespace KestrinProfileCLI
