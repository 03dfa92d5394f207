#include <kestrin-profile-server/http/Exchange.hpp>
#include <kestrin-profile-server/http/Redaction.hpp>

namespace KestrinProfileServer {

ShownHeaders::ShownHeaders(const HeaderLines& headers) {
    for (const auto& [name, value] : headers)
        add(name, value);
    text_.shrink_to_fit();
}

void ShownHeaders::add(std::string_view name, std::string_view value) {
    text_.append(name).append(": ").append(shownHeader(name, value)).append("\n");
}

HeaderLines ShownHeaders::lines() const {
    HeaderLines lines;
    for (std::size_t at = 0; at < text_.size();) {
        const std::size_t colon = text_.find(": ", at);
        const std::size_t end = text_.find('\n', colon);
        lines.emplace_back(text_.substr(at, colon - at), text_.substr(colon + 2, end - colon - 2));
        at = end + 1;
    }
    return lines;
}

}  // namespace KestrinProfileServer
