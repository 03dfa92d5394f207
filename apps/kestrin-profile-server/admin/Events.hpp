#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <internal/Guarded.hpp>
#include <kestrin-profile-server/http/EventStream.hpp>

namespace KestrinProfileServer {

/// Tells listeners what happens in a namespace, as server-sent events
/// (https://html.spec.whatwg.org/multipage/server-sent-events.html). Used by all threads at once.
class Events {
  public:
    ~Events() { stop(); }
    Events() = default;
    Events(const Events&) = delete;
    Events& operator=(const Events&) = delete;

    /// Costs one read of an atomic; without listeners nobody needs make an event.
    [[nodiscard]] bool hasListeners() const { return count_.load(std::memory_order_relaxed) > 0; }

    /// From here on the stream gets every event, until its holder lets it go.
    [[nodiscard]] std::shared_ptr<EventStream> listen();

    /// @param name  one word
    /// @param data  one line
    void publish(std::string_view name, std::string_view data,
                 std::optional<std::int64_t> id = std::nullopt);

    /// Ends all streams, and those that come later at once.
    void stop();

  private:
    struct State {
        std::vector<std::weak_ptr<EventStream>> streams;
        bool isStopped = false;
    };

    [[nodiscard]] std::vector<std::shared_ptr<EventStream>> present();

    std::atomic<std::size_t> count_ = 0;
    KestrinInternal::Guarded<State> state_;
};

}  // namespace KestrinProfileServer
