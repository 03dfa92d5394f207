#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include <kestrin-profile-server/domain/Lists.hpp>

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

/// The values of a body that was found to have its shape. A key that did not come has none.
class Body {
  public:
    [[nodiscard]] std::optional<std::string> text(std::string_view key) const;
    [[nodiscard]] std::optional<bool> boolean(std::string_view key) const;
    [[nodiscard]] std::optional<bool> truthText(std::string_view key) const;
    [[nodiscard]] std::optional<std::int64_t> decimalText(std::string_view key) const;
    [[nodiscard]] const NewEntries& elements() const { return elements_; }

  private:
    friend class BodyReader;
    using Value = std::variant<std::string, bool>;

    template <class Kind>
    [[nodiscard]] std::optional<Kind> value(std::string_view key) const;

    std::vector<std::pair<std::string_view, Value>> values_;
    NewEntries elements_;
};

/// Throws the problem of a body that is not `application/json`, or is compressed.
void checkContent(const RawBody& body);

/// The body as an object that has the shape; throws the problem that names the first fault.
/// An empty body that is allowed is an empty object. Takes little more memory than the text.
[[nodiscard]] Body parsedBody(const RawBody& body, const BodyShape& shape);

}  // namespace KestrinProfileServer
