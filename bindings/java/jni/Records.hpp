#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "Wire.hpp"

namespace KestrinJava {

// The records of the interface for C on their way to Java …

void write(Writer& writer, const kestrin_result& result);
void write(Writer& writer, const kestrin_error& error);
void write(Writer& writer, const kestrin_binds& binds);
void write(Writer& writer, const kestrin_household_event& event);
void write(Writer& writer, const kestrin_outbox_event& event);
void write(Writer& writer, const kestrin_transfer_request& request);
void write(Writer& writer, const kestrin_retry_policy& policy);
void write(Writer& writer, const kestrin_outbox_options& options);

// … and back. What a structure points to lives as long as the object that has it, or the reader's
// bytes.

/// An array that the reader's elements are kept in.
template <class Structure, class Array>
class Elements {
  public:
    Elements() = default;

    template <class Read>
    Elements(Reader& reader, const Read& readElement) {
        const std::int32_t count = reader.count();
        isPresent_ = count >= 0;
        for (std::int32_t index = 0; index < count; ++index)
            elements_.push_back(readElement(reader));
    }

    [[nodiscard]] Array array() const noexcept {
        Array array{};
        if (!isPresent_) return array;
        static const Structure none{};
        array.first = elements_.empty() ? &none : elements_.data();
        array.count = elements_.size();
        if constexpr (requires { array.stride; }) array.stride = sizeof(Structure);
        return array;
    }

  private:
    std::vector<Structure> elements_;
    bool isPresent_ = false;
};

using Entries = Elements<kestrin_entry, kestrin_entries>;
using Texts = Elements<kestrin_text, kestrin_texts>;
using Numbers = Elements<std::int32_t, kestrin_int32s>;
using Headers = Elements<kestrin_header, kestrin_headers>;
using Binds = Elements<kestrin_bind, kestrin_binds>;

[[nodiscard]] kestrin_bind readBind(Reader& reader);
[[nodiscard]] Entries readEntries(Reader& reader);
[[nodiscard]] Binds readBinds(Reader& reader);

/// A call, with what it points to.
class Call {
  public:
    explicit Call(std::string bytes);
    Call(const Call&) = delete;
    Call& operator=(const Call&) = delete;
    [[nodiscard]] const kestrin_call& structure() const noexcept { return call_; }

  private:
    std::string bytes_;
    kestrin_call call_{};
    kestrin_user user_{};
    Entries shows_;
};

/// A write for an outbox.
class Write {
  public:
    explicit Write(std::string bytes);
    Write(const Write&) = delete;
    Write& operator=(const Write&) = delete;
    [[nodiscard]] const kestrin_write& structure() const noexcept { return write_; }

  private:
    std::string bytes_;
    kestrin_write write_{};
    Entries shows_;
};

/// A retry policy.
class Policy {
  public:
    explicit Policy(std::string bytes);
    Policy(const Policy&) = delete;
    Policy& operator=(const Policy&) = delete;
    [[nodiscard]] const kestrin_retry_policy& structure() const noexcept { return policy_; }

  private:
    std::string bytes_;
    kestrin_retry_policy policy_{};
    std::vector<Numbers> numbers_;
    Texts methods_;
};

/// The reply of a transport.
class Reply {
  public:
    explicit Reply(std::string bytes);
    Reply(const Reply&) = delete;
    Reply& operator=(const Reply&) = delete;
    [[nodiscard]] const kestrin_transfer_reply& structure() const noexcept { return reply_; }

  private:
    std::string bytes_;
    kestrin_transfer_reply reply_{};
    Headers headers_;
};

[[nodiscard]] kestrin_session_options readSessionOptions(std::string_view bytes);
[[nodiscard]] kestrin_outbox_options readOutboxOptions(std::string_view bytes);
[[nodiscard]] kestrin_reporter_options readReporterOptions(std::string_view bytes);

}  // namespace KestrinJava
