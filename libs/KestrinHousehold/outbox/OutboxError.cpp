#include <array>
#include <cstddef>
#include <string>

#include <KestrinHousehold/outbox/OutboxError.hpp>

namespace KestrinHousehold {
namespace {

struct Text {
    const char* what;
    const char* advice;
};

constexpr std::array<Text, 5> texts{{
    {"invalidWrite: the outbox does not keep this write", "mend the write"},
    {"full: the outbox holds as many entries as it may",
     "send the write at once, or say that nothing can be kept until the network is back"},
    {"storeUnavailable: the outbox's store cannot be used",
     "let one process use one file, and check the file and its folder"},
    {"notStored: the write could not be stored", "free space on the disk and try again"},
    {"closed: the outbox was destroyed", "keep the outbox as long as the application runs"},
}};

const Text& textOf(OutboxError::Case value) noexcept {
    return texts.at(static_cast<std::size_t>(value));
}

std::runtime_error textOf(OutboxError::Case value, std::string_view detail) {
    std::string text = textOf(value).what;
    if (!detail.empty()) text.append(": ").append(detail);
    return std::runtime_error(text);
}

}  // namespace

OutboxError::OutboxError(Case value, std::string_view detail)
    : value_(value), text_(textOf(value, detail)) {}

OutboxError::~OutboxError() = default;

std::string_view OutboxError::domain() noexcept {
    return "KestrinHousehold.OutboxError";
}

std::string_view OutboxError::advice() const noexcept {
    return textOf(value_).advice;
}

}  // namespace KestrinHousehold
