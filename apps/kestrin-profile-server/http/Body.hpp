#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include <boost/json/object.hpp>

namespace KestrinProfileServer {

/// What the value of a body's key may be. The protocol writes some truths and numbers as text.
enum class ValueKind { text, identifier, boolean, truthText, decimalText, termText, elements };

struct BodyKey {
    std::string_view name;
    ValueKind kind;
    bool isRequired = false;
};

enum class BodyRule { none, optional, required };

/// Which body an operation takes.
struct BodyShape {
    BodyRule rule = BodyRule::none;
    std::span<const BodyKey> keys{};
};

/// A body as it came, with the headers that say what it is; a header that did not come is empty.
struct RawBody {
    std::string_view text;
    std::string_view contentType;
    std::string_view contentEncoding;
};

/// The body as an object that has the shape; throws the problem that names the first fault.
/// An empty body that is allowed is an empty object.
[[nodiscard]] boost::json::object parsedBody(const RawBody& body, const BodyShape& shape);

// The values of a body that was found to have its shape:
[[nodiscard]] std::optional<std::string> textIn(const boost::json::object& body,
                                                std::string_view key);
[[nodiscard]] std::optional<bool> booleanIn(const boost::json::object& body, std::string_view key);
[[nodiscard]] std::optional<bool> truthTextIn(const boost::json::object& body,
                                              std::string_view key);
[[nodiscard]] std::optional<std::int64_t> decimalTextIn(const boost::json::object& body,
                                                        std::string_view key);

}  // namespace KestrinProfileServer
