#include <algorithm>
#include <array>
#include <cstring>

#include <HalvardSling/curl/internal/CurlHeaderLines.hpp>
#include <internal/ASCII.hpp>

namespace HalvardSling::internal {

namespace {

constexpr std::size_t usualBytes = 512;
constexpr std::size_t ownLines = 5;

/// Header fields that say how the message is framed.
bool isFraming(std::string_view name) noexcept {
    static constexpr std::array<std::string_view, 3> framing{"Content-Length", "Transfer-Encoding",
                                                             "Expect"};
    return std::ranges::any_of(framing, [&](auto each) { return Headers::sameName(each, name); });
}

}  // namespace

curl_slist* CurlHeaderLines::of(const CheckedRequest& request, bool sendsBody,
                                std::string_view userAgent) {
    const Headers& headers = request->headers;
    texts_.clear();
    texts_.reserve(usualBytes);
    nodes_.clear();
    nodes_.reserve(headers.size() + ownLines);
    // "Name:" takes away what libcurl sends of its own accord, "Name;" sends an empty value.
    if (sendsBody) {
        add({"Expect:"});
        if (!headers.value("Content-Type")) add({"Content-Type:"});
    }
    // libcurl would send these two of its own accord, but composes them anew for every request.
    if (request->sendsUserAgent && !userAgent.empty() && !headers.value("User-Agent"))
        add({"User-Agent: ", userAgent});
    if (!headers.value("Accept-Encoding")) add({"Accept-Encoding: gzip"});
    if (!headers.value(requestIDHeader)) add({requestIDHeader, ": ", request.requestID()});
    for (const auto& [name, value] : headers) {
        if (isFraming(name)) continue;
        if (KestrinInternal::trimmed(value).empty())
            add({name, ";"});
        else
            add({name, ": ", value});
    }
    return linked();
}

void CurlHeaderLines::add(std::initializer_list<std::string_view> pieces) {
    for (const std::string_view piece : pieces)
        texts_.insert(texts_.end(), piece.begin(), piece.end());
    texts_.push_back('\0');
    nodes_.emplace_back();
}

/// Once the texts do not move any more. There is a line for the identifier at least.
curl_slist* CurlHeaderLines::linked() noexcept {
    char* text = texts_.data();
    curl_slist* before = nullptr;
    for (curl_slist& node : nodes_) {
        node.data = text;
        text += std::strlen(text) + 1;
        if (before != nullptr) before->next = &node;
        before = &node;
    }
    return nodes_.data();
}

}  // namespace HalvardSling::internal
