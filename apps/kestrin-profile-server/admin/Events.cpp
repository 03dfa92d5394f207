#include <kestrin-profile-server/admin/Events.hpp>

namespace KestrinProfileServer {

std::shared_ptr<EventStream> Events::listen() {
    auto stream = std::make_shared<EventStream>();
    const auto state = state_.lock();
    if (state->isStopped) {
        stream->end();
        return stream;
    }
    std::erase_if(state->streams, [](const auto& each) { return each.expired(); });
    state->streams.push_back(stream);
    count_ = state->streams.size();
    return stream;
}

std::vector<std::shared_ptr<EventStream>> Events::present() {
    std::vector<std::shared_ptr<EventStream>> streams;
    const auto state = state_.lock();
    std::erase_if(state->streams, [&streams](const auto& each) {
        auto stream = each.lock();
        if (!stream) return true;
        streams.push_back(std::move(stream));
        return false;
    });
    count_ = state->streams.size();
    return streams;
}

void Events::publish(std::string_view name, std::string_view data, std::optional<std::int64_t> id) {
    if (!hasListeners()) return;
    std::string text = id ? "id: " + std::to_string(*id) + "\n" : std::string();
    text.append("event: ").append(name).append("\ndata: ").append(data).append("\n\n");
    for (const auto& stream : present())
        stream->add(text);
}

void Events::stop() {
    state_.lock()->isStopped = true;
    for (const auto& stream : present())
        stream->end();
}

}  // namespace KestrinProfileServer
