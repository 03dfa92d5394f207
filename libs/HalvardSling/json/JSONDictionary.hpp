#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include <HalvardSling/Export.hpp>

namespace HalvardSling {

class JSONDictionaryList;

namespace internal {
class JSONDocument;
struct JSONNode;
struct JSONView;
}  // namespace internal

/// What a JSON value is (RFC 8259), with integers told from other numbers.
enum class JSONKind {
    null,        ///< null
    boolean,     ///< true or false
    integer,     ///< without fraction and exponent, and fits 64 bits signed
    number,      ///< every other number, however large: 1.0, 1e3, 18446744073709551615, 1e400
    text,        ///< a string
    array,       ///< values in order
    dictionary,  ///< an object: values by keys
};

/// The name of a kind as people say it, e.g. "a number".
[[nodiscard]] HALVARD_SLING_EXPORT std::string_view name(JSONKind kind) noexcept;

/// Bounds of what is made of a JSON text.
struct JSONLimits {
    /// How deep arrays and dictionaries may stand in each other.
    std::size_t maxDepth = 64;
    /// How many bytes the text may take together with all that is made of it, its records included:
    /// its own length; 16 for each value and each key; 176 more for each dictionary; 24 and its
    /// length for each text that is a value; once more the length of each text and key with an
    /// escape. Repeated keys may take a few more while they are looked for.
    std::size_t maxMemory = std::size_t{64} << 20U;
};

/// Why there is no JSON dictionary. Never holds any of the text.
struct HALVARD_SLING_EXPORT JSONFailure {
    /// The kinds of failure.
    enum class Kind {
        malformed,  ///< the text is not JSON, is too deep, or its top is not a dictionary
        tooLarge,   ///< more would be made of the text than `JSONLimits::maxMemory`
    };

    Kind kind = Kind::malformed;  ///< which it is
    std::string reason;           ///< e.g. "syntax error"
    std::size_t offset = 0;       ///< byte position, from 0
    std::size_t line = 1;         ///< from 1
    std::size_t column = 1;       ///< in bytes, from 1

    /// Reason and place as one text, e.g. "syntax error at line 1, column 5".
    [[nodiscard]] std::string text() const;
};

class JSONDictionary;

/// Equal when both hold the same keys with equal values, whatever the order of the keys. An
/// integer never equals another kind of number; of those, 1.0 and 10e-1 are equal.
HALVARD_SLING_EXPORT bool operator==(const JSONDictionary& left, const JSONDictionary& right);

/// A string-keyed map of JSON values: the input of every reader and the output of every writer.
///
/// It reads strictly: a look-up gives a value only if the key exists and its value has exactly the
/// kind that was asked for. An integer is a JSON number without fraction and exponent that fits 64
/// bits signed; 1.0 and 9223372036854775808 are not. A Boolean is only true or false. If a text
/// holds a key twice, the first one counts and the other is dropped. A look-up goes through the
/// keys: a dictionary is made for the fields of a record. Numbers that are no integers are written
/// as they were read: 1.0 stays 1.0.
///
/// A value type; one that was moved from is empty. A dictionary that came from a text shares the
/// parsed document with its copies and with the dictionaries inside it, so handing those around
/// copies nothing; one that was built is copied whole. Const members may be called from any number
/// of threads at once.
class HALVARD_SLING_EXPORT JSONDictionary {
  public:
    /// An empty dictionary.
    JSONDictionary() noexcept;
    /// Copies what was built; shares what came from a text.
    JSONDictionary(const JSONDictionary& other);
    /// Takes it over; the other one is empty then.
    JSONDictionary(JSONDictionary&& other) noexcept;
    /// As the copy.
    JSONDictionary& operator=(const JSONDictionary& other);
    /// As the taking over.
    JSONDictionary& operator=(JSONDictionary&& other) noexcept;
    ~JSONDictionary();

    /// Reads a dictionary from a JSON text (RFC 8259, UTF-8, no comments, nothing after it).
    /// @param text    the text; it is kept and read from as long as the dictionary lives
    /// @param limits  a text that exceeds one of them is a failure
    /// @return the dictionary, or why there is none: not JSON, the top is not a dictionary, too
    /// much
    [[nodiscard]] static std::variant<JSONDictionary, JSONFailure> parse(
        std::shared_ptr<const std::string> text, const JSONLimits& limits = {});

    /// The same for a text that is copied.
    [[nodiscard]] static std::variant<JSONDictionary, JSONFailure> parse(
        std::string_view text, const JSONLimits& limits = {});

    // Look-ups. A view lives as long as this dictionary, or any that shares its document, and is
    // not changed.

    /// The kind of the value under a key; absent if there is no such key.
    [[nodiscard]] std::optional<JSONKind> kind(std::string_view key) const;
    /// The text under a key; absent if there is no such key, or another kind of value.
    [[nodiscard]] std::optional<std::string_view> text(std::string_view key) const;
    /// The integer under a key; absent as above.
    [[nodiscard]] std::optional<std::int64_t> integer(std::string_view key) const;
    /// The Boolean under a key; absent as above.
    [[nodiscard]] std::optional<bool> boolean(std::string_view key) const;
    /// The dictionary under a key; absent as above.
    [[nodiscard]] std::optional<JSONDictionary> dictionary(std::string_view key) const;
    /// The dictionaries of an array; absent if the value is not an array or one of its items is
    /// not a dictionary.
    [[nodiscard]] std::optional<JSONDictionaryList> dictionaries(std::string_view key) const;
    /// The texts of an array; absent if the value is not an array or one of its items is not a
    /// text.
    [[nodiscard]] std::optional<std::vector<std::string_view>> texts(std::string_view key) const;

    /// All keys, in the order of the text or of insertion.
    [[nodiscard]] std::vector<std::string_view> keys() const;
    /// The keys that the text holds more than once, each once; none after a change.
    [[nodiscard]] std::vector<std::string_view> repeatedKeys() const;
    /// How many keys there are.
    [[nodiscard]] std::size_t size() const noexcept;
    /// Whether there is no key.
    [[nodiscard]] bool empty() const noexcept { return size() == 0; }

    // Building. Setting a key that exists replaces its value and moves it to the end. Keys and
    // values may be views of this dictionary, or the dictionary itself. If one of these throws
    // (std::bad_alloc; std::length_error above 4 GiB of texts), the dictionary is as before.

    /// Sets a text.
    void setText(std::string_view key, std::string_view value);
    /// Sets an integer.
    void setInteger(std::string_view key, std::int64_t value);
    /// Sets a Boolean.
    void setBoolean(std::string_view key, bool value);
    /// Sets a dictionary.
    void setDictionary(std::string_view key, const JSONDictionary& value);
    /// Sets an array of dictionaries.
    void setDictionaries(std::string_view key, const std::vector<JSONDictionary>& values);
    /// Sets an array of texts.
    void setTexts(std::string_view key, const std::vector<std::string>& values);
    /// Removes a key; does nothing if there is none.
    void remove(std::string_view key);

    /// The dictionary as compact JSON text, keys in their order. Texts are written as they are;
    /// only what JSON requires is escaped.
    [[nodiscard]] std::string toJSON() const;

    friend bool operator==(const JSONDictionary& left, const JSONDictionary& right);

  private:
    friend class JSONDictionaryList;
    using Document = internal::JSONDocument;

    JSONDictionary(std::shared_ptr<const Document> document, std::uint32_t node) noexcept;

    [[nodiscard]] const Document* document() const noexcept;
    [[nodiscard]] internal::JSONView view() const noexcept;
    [[nodiscard]] JSONDictionary shared(const internal::JSONNode* container) const;
    void appendTo(Document& document) const;
    [[nodiscard]] std::unique_ptr<Document> copyWithout(std::string_view key) const;
    void adopt(std::unique_ptr<Document> document) noexcept;
    template <class AppendValue>
    void set(std::string_view key, const AppendValue& appendValue);

    std::shared_ptr<const Document> shared_;  // if it came from a text
    std::unique_ptr<Document> built_;         // if it was built; both null: empty
    std::uint32_t node_ = 0;
};

/// The dictionaries of a JSON array, in order; a view that shares their document.
///
/// An iterator holds the one dictionary that it points to, so going through a list costs nothing
/// per item; a reference taken from an iterator is good until the iterator moves or goes, a copy of
/// the dictionary for ever.
class HALVARD_SLING_EXPORT JSONDictionaryList {
  public:
    /// Goes through the dictionaries in order.
    class Iterator {
      public:
        /// What the standard library asks of an iterator.
        /// @{
        using iterator_concept = std::input_iterator_tag;
        using iterator_category = std::input_iterator_tag;
        using value_type = JSONDictionary;
        using difference_type = std::ptrdiff_t;
        using pointer = const JSONDictionary*;
        using reference = const JSONDictionary&;
        /// @}

        /// At the end of no list.
        Iterator() = default;
        /// The dictionary; good until the iterator moves or goes.
        [[nodiscard]] reference operator*() const noexcept { return current_; }
        /// A member of it.
        [[nodiscard]] pointer operator->() const noexcept { return &current_; }
        /// Goes to the next one.
        Iterator& operator++();
        /// The same.
        void operator++(int) { ++*this; }
        /// Whether it is behind the last one.
        [[nodiscard]] bool operator==(std::default_sentinel_t) const noexcept { return left_ == 0; }

      private:
        friend class JSONDictionaryList;
        Iterator(JSONDictionary first, std::size_t left) noexcept
            : current_(std::move(first)), left_(left) {}

        JSONDictionary current_;
        std::size_t left_ = 0;
    };

    /// At the first dictionary.
    [[nodiscard]] Iterator begin() const;
    /// What an iterator behind the last one is equal to.
    [[nodiscard]] static std::default_sentinel_t end() noexcept { return std::default_sentinel; }
    /// How many dictionaries there are.
    [[nodiscard]] std::size_t size() const noexcept { return size_; }
    /// Whether there is none.
    [[nodiscard]] bool empty() const noexcept { return size_ == 0; }

  private:
    friend class JSONDictionary;
    JSONDictionaryList(JSONDictionary first, std::size_t size) noexcept;

    JSONDictionary first_;
    std::size_t size_;
};

}  // namespace HalvardSling
