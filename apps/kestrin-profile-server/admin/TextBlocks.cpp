#include <algorithm>

#include <kestrin-profile-server/admin/TextBlocks.hpp>

namespace KestrinProfileServer {

KeptText TextBlocks::keep(std::string_view text) {
    constexpr std::size_t usualSize = std::size_t{256} * 1024;
    if (text.empty()) return {};
    if (text.size() > size_ - used_) {
        const std::size_t size = std::max(usualSize, text.size());
        block_ = std::make_shared_for_overwrite<char[]>(size);
        size_ = size;
        used_ = 0;
    }
    char* const place = block_.get() + used_;
    std::ranges::copy(text, place);
    used_ += text.size();
    return {block_, {place, text.size()}};
}

}  // namespace KestrinProfileServer
