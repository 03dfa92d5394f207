#include <cstdlib>
#include <memory>
#include <mutex>
#include <pthread.h>
#include <utility>

#include <HalvardSling/transport/Transport.hpp>
#include <HalvardSling/transport/internal/DefaultTransport.hpp>

namespace HalvardSling {

namespace {

/// Where the default transport is kept. Never destroyed, so that threads which outlive `main` and
/// the destructors of an application's globals may still ask for it.
class DefaultTransport {
  public:
    std::shared_ptr<Transport> transport() {
        const std::scoped_lock lock(mutex_);
        if (!transport_) transport_ = made();
        registerExit();
        return transport_;
    }

    std::shared_ptr<Transport> replace(std::shared_ptr<Transport> transport) {
        const std::scoped_lock lock(mutex_);
        if (transport) registerExit();
        return std::exchange(transport_, std::move(transport));
    }

    static DefaultTransport& instance() {
        static DefaultTransport* const only = [] {
            // A process that is forked must not find the lock in the hand of a thread that it has
            // not.
            static_cast<void>(::pthread_atfork([] { instance().mutex_.lock(); },
                                               [] { instance().mutex_.unlock(); },
                                               [] { instance().mutex_.unlock(); }));
            return new DefaultTransport;
        }();
        return *only;
    }

  private:
    /// A new one; once the process is at its exit, one that sends nothing.
    [[nodiscard]] std::shared_ptr<Transport> made() const {
        auto transport = internal::makeDefaultTransport();
        if (exiting_) transport->abandon();
        return transport;
    }

    /// Called once a transport exists, and with it its library's own clean-up is registered: what
    /// is registered later runs earlier.
    void registerExit() {
        if (!std::exchange(registered_, true)) static_cast<void>(std::atexit(&atExit));
    }

    static void atExit() {
        if (const auto transport = instance().beginExit()) transport->abandon();
    }

    std::shared_ptr<Transport> beginExit() {
        const std::scoped_lock lock(mutex_);
        exiting_ = true;
        return transport_;
    }

    std::mutex mutex_;
    std::shared_ptr<Transport> transport_;
    bool registered_ = false;
    bool exiting_ = false;
};

}  // namespace

std::shared_ptr<Transport> defaultTransport() {
    return DefaultTransport::instance().transport();
}

void setDefaultTransport(std::shared_ptr<Transport> transport) {
    // The former one is released here, without the lock, for its end calls completions.
    const auto former = DefaultTransport::instance().replace(std::move(transport));
}

}  // namespace HalvardSling
