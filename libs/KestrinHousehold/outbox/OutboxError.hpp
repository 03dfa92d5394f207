#pragma once

#include <exception>
#include <stdexcept>
#include <string_view>

#include <KestrinHousehold/Export.hpp>

namespace KestrinHousehold {

/// Why an outbox has not kept a write. It arrives as an observable's error; the write was not
/// accepted, and nothing of it is left.
class KESTRIN_HOUSEHOLD_EXCEPTION OutboxError final : public std::exception {
  public:
    /// The reasons; the position is the error's code.
    enum class Case {
        /// The write is incomplete, or one that no outbox keeps. Mend it.
        invalidWrite,
        /// The outbox holds as many entries as it may. Send the write at once, or tell the user
        /// that nothing can be kept until the network is back.
        full,
        /// The store cannot be used: another process has it, it belongs to another program, or the
        /// system refuses it. The text says which.
        storeUnavailable,
        /// The disk is full or fails. The text says what the system said.
        notStored,
        /// The outbox was destroyed.
        closed,
    };

    /// @param value   the reason
    /// @param detail  what exactly is wrong, for people; no secrets
    explicit OutboxError(Case value, std::string_view detail = {});
    OutboxError(const OutboxError&) = default;
    OutboxError(OutboxError&&) = default;
    OutboxError& operator=(const OutboxError&) = default;
    OutboxError& operator=(OutboxError&&) = default;
    ~OutboxError() override;

    /// The reason, for a `switch`.
    [[nodiscard]] Case value() const noexcept { return value_; }
    /// The reason's position.
    [[nodiscard]] int code() const noexcept { return static_cast<int>(value_); }
    /// "KestrinHousehold.OutboxError".
    [[nodiscard]] static std::string_view domain() noexcept;
    /// What the caller should do about it.
    [[nodiscard]] std::string_view advice() const noexcept;
    /// The reason's name, meaning and detail.
    [[nodiscard]] const char* what() const noexcept override { return text_.what(); }

  private:
    Case value_;
    std::runtime_error text_;  // a text whose copies cannot fail, as those of an error must not
};

}  // namespace KestrinHousehold
