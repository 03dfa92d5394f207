#include <cstdlib>
#include <memory>
#include <mutex>
#include <utility>

#include <HalvardSling/curl/CurlTransport.hpp>
#include <HalvardSling/transport/Transport.hpp>

namespace HalvardSling {

namespace {

/// Where the default transport is kept. Never destroyed, so that threads which outlive `main` and
/// the destructors of an application's globals may still ask for it.
class Place {
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

    static Place& instance() {
        static Place* const place = new Place;
        return *place;
    }

  private:
    /// A new one; once the process is at its exit, one that sends nothing.
    [[nodiscard]] std::shared_ptr<CurlTransport> made() const {
        auto transport = std::make_shared<CurlTransport>();
        if (exiting_) transport->abandon();
        return transport;
    }

    /// Called once a transport exists, and with it libcurl's own clean-up is registered: what is
    /// registered later runs earlier.
    void registerExit() {
        if (!std::exchange(registered_, true)) static_cast<void>(std::atexit(&atExit));
    }

    static void atExit() {
        if (const auto curl = std::dynamic_pointer_cast<CurlTransport>(instance().beginExit()))
            curl->abandon();
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
    return Place::instance().transport();
}

void setDefaultTransport(std::shared_ptr<Transport> transport) {
    // The former one is released here, without the lock, for its end calls completions.
    const auto former = Place::instance().replace(std::move(transport));
}

}  // namespace HalvardSling
