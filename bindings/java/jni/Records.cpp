#include "Records.hpp"

#include <utility>

namespace KestrinJava {

namespace {

/// A structure, as far as its size is concerned.
template <class Structure>
[[nodiscard]] Structure blank() noexcept {
    Structure structure{};
    structure.size = sizeof structure;
    return structure;
}

// ---- To Java ------------------------------------------------------------------------------------

void write(Writer& writer, const kestrin_bind& bind) {
    writer.text(bind.profile_id);
    writer.text(bind.token);
}

void write(Writer& writer, const kestrin_user& user) {
    writer.text(user.profile_id);
    writer.text(user.username);
    writer.text(user.avatar);
    writer.text(user.group);
    writer.number(user.default_user);
}

void write(Writer& writer, const kestrin_entry& entry) {
    writer.text(entry.id);
    writer.text(entry.type);
    writer.optional(entry.progress);
    writer.optional(entry.is_completed);
    writer.optional(entry.auto_add_timestamp);
}

void write(Writer& writer, const kestrin_kept& kept);

/// All elements of an array, by the function that finds them.
template <class Array, class At>
void writeAll(Writer& writer, const Array& array, const At& at) {
    writer.count(array.count);
    for (std::size_t index = 0; index < array.count; ++index)
        write(writer, *at(&array, index));
}

void write(Writer& writer, const kestrin_list& list) {
    writer.text(list.id);
    writer.optional(list.max_size);
    if (list.has_entries)
        writeAll(writer, list.entries, kestrin_entry_at);
    else
        writer.absent();
}

void write(Writer& writer, const kestrin_headers& headers) {
    writer.count(headers.count);
    for (std::size_t index = 0; index < headers.count; ++index) {
        writer.text(headers.first[index].name);
        writer.text(headers.first[index].value);
    }
}

void write(Writer& writer, const kestrin_response& response) {
    writer.number(response.status);
    write(writer, response.headers);
    writer.text(response.body);
}

void write(Writer& writer, const kestrin_texts& texts) {
    writer.count(texts.count);
    for (std::size_t index = 0; index < texts.count; ++index)
        writer.text(texts.first[index]);
}

void write(Writer& writer, const kestrin_int32s& numbers) {
    writer.count(numbers.count);
    for (std::size_t index = 0; index < numbers.count; ++index)
        writer.number(numbers.first[index]);
}

void write(Writer& writer, const kestrin_outbox_state& state) {
    writer.number(static_cast<std::int64_t>(state.waiting));
    writer.number(static_cast<std::int64_t>(state.refused));
    write(writer, state.warnings);
}

void write(Writer& writer, const kestrin_write& change) {
    writer.text(change.profile_id);
    writer.text(change.brand_id);
    writer.number(change.operation);
    writer.text(change.item_id);
    writeAll(writer, change.shows, kestrin_entry_at);
    writer.optional(change.progress);
    writer.optional(change.is_complete);
}

void write(Writer& writer, const kestrin_refusal& refusal) {
    writer.number(refusal.at_ms);
    writer.number(refusal.status);
    writer.text(refusal.title);
    writer.text(refusal.detail);
}

/// What may not be there.
template <class Structure>
void writeIfPresent(Writer& writer, const Structure* structure) {
    writer.number(structure != nullptr);
    if (structure != nullptr) write(writer, *structure);
}

void write(Writer& writer, const kestrin_kept& kept) {
    writer.number(kept.number);
    writeIfPresent(writer, kept.write);
    writer.number(kept.accepted_at_ms);
    writeIfPresent(writer, kept.refusal);
}

}  // namespace

void write(Writer& writer, const kestrin_binds& binds) {
    writeAll(writer, binds, kestrin_bind_at);
}

void write(Writer& writer, const kestrin_error& error) {
    writer.text(error.domain);
    writer.number(error.code);
    writer.number(error.status);
    writer.number(error.notice);
    writer.text(error.message);
    writer.text(error.advice);
    writer.text(error.request_id);
    writer.text(error.problem_type);
    writer.text(error.problem_title);
    writer.text(error.problem_detail);
}

void write(Writer& writer, const kestrin_result& result) {
    writer.number(result.outcome);
    writeIfPresent(writer, result.error);
    writeIfPresent(writer, result.response);
    writeIfPresent(writer, result.bind);
    writeIfPresent(writer, result.list);
    writeIfPresent(writer, result.outbox_state);
    writeAll(writer, result.users, kestrin_user_at);
    write(writer, result.binds);
    writeAll(writer, result.kept, kestrin_kept_at);
    writer.text(result.text);
    writer.number(result.number);
}

void write(Writer& writer, const kestrin_household_event& event) {
    writer.number(event.kind);
    writer.number(event.operation);
    writer.number(event.attempt);
    writer.number(event.max_attempts);
    writer.number(event.delay_ms);
    writer.text(event.reason);
    writer.text(event.text);
}

void write(Writer& writer, const kestrin_outbox_event& event) {
    writer.number(event.kind);
    writeIfPresent(writer, event.entry);
    writer.text(event.text);
    writer.optional(event.by);
    writer.number(event.delay_ms);
}

void write(Writer& writer, const kestrin_transfer_request& request) {
    writer.text(request.method);
    writer.text(request.url);
    write(writer, request.headers);
    writer.text(request.body);
    writer.number(request.sends_user_agent);
    writer.number(request.connect_timeout_ms);
    writer.number(request.total_timeout_ms);
    writer.number(request.max_redirects);
    writer.number(static_cast<std::int64_t>(request.max_body_length));
    writer.text(request.operation);
    writer.text(request.path_template);
}

void write(Writer& writer, const kestrin_retry_policy& policy) {
    writer.number(policy.max_attempts);
    writer.number(policy.first_delay_ms);
    writer.number(policy.longest_delay_ms);
    writer.number(policy.deadline_ms);
    write(writer, policy.unsent_errors);
    write(writer, policy.idempotent_methods);
    write(writer, policy.errors);
    write(writer, policy.statuses);
    write(writer, policy.refusals);
    writer.number(policy.budget_share);
    writer.number(policy.budget_at_start);
    writer.number(policy.budget_at_most);
}

void write(Writer& writer, const kestrin_outbox_options& options) {
    writer.text(options.file);
    writer.number(static_cast<std::int64_t>(options.max_entries));
    writer.number(options.max_age_ms);
    writer.number(static_cast<std::int64_t>(options.max_refused));
    writer.number(options.compare_after_ms);
    writer.number(options.first_delay_ms);
    writer.number(options.longest_delay_ms);
    writer.number(options.removal_delay_ms);
    writer.number(options.longest_request_ms);
}

// ---- From Java ----------------------------------------------------------------------------------

namespace {

kestrin_entry readEntry(Reader& reader) {
    auto entry = blank<kestrin_entry>();
    entry.id = reader.text();
    entry.type = reader.text();
    entry.progress = reader.optionalNumber();
    entry.is_completed = reader.optionalBoolean();
    entry.auto_add_timestamp = reader.optionalNumber();
    return entry;
}

kestrin_user readUser(Reader& reader) {
    auto user = blank<kestrin_user>();
    user.profile_id = reader.text();
    user.username = reader.text();
    user.avatar = reader.text();
    user.group = reader.text();
    user.default_user = reader.boolean();
    return user;
}

}  // namespace

kestrin_bind readBind(Reader& reader) {
    auto bind = blank<kestrin_bind>();
    bind.profile_id = reader.text();
    bind.token = reader.text();
    return bind;
}

Entries readEntries(Reader& reader) {
    return {reader, readEntry};
}

Binds readBinds(Reader& reader) {
    return {reader, readBind};
}

Call::Call(std::string bytes) : bytes_(std::move(bytes)), call_(blank<kestrin_call>()) {
    Reader reader(bytes_);
    call_.operation = reader.number<kestrin_operation>();
    call_.profile_id = reader.text();
    call_.brand_id = reader.text();
    call_.video_id = reader.text();
    call_.show_id = reader.text();
    call_.user_name = reader.text();
    call_.search = reader.text();
    call_.progress = reader.optionalNumber();
    call_.is_complete = reader.optionalBoolean();
    if (reader.boolean()) {
        user_ = readUser(reader);
        call_.user = &user_;
    }
    shows_ = readEntries(reader);
    call_.shows = shows_.array();
}

Write::Write(std::string bytes) : bytes_(std::move(bytes)), write_(blank<kestrin_write>()) {
    Reader reader(bytes_);
    write_.profile_id = reader.text();
    write_.brand_id = reader.text();
    write_.operation = reader.number<kestrin_operation>();
    write_.item_id = reader.text();
    shows_ = readEntries(reader);
    write_.shows = shows_.array();
    write_.progress = reader.optionalNumber();
    write_.is_complete = reader.optionalBoolean();
}

Policy::Policy(std::string bytes)
    : bytes_(std::move(bytes)), policy_(blank<kestrin_retry_policy>()) {
    Reader reader(bytes_);
    // What was handed out stays where it is.
    numbers_.reserve(4);
    const auto readNumbers = [&] {
        return numbers_
            .emplace_back(reader, [](Reader& from) { return from.number<std::int32_t>(); })
            .array();
    };
    policy_.max_attempts = reader.number<std::int32_t>();
    policy_.first_delay_ms = reader.number<std::int64_t>();
    policy_.longest_delay_ms = reader.number<std::int64_t>();
    policy_.deadline_ms = reader.number<std::int64_t>();
    policy_.unsent_errors = readNumbers();
    methods_ = {reader, [](Reader& from) { return from.text(); }};
    policy_.idempotent_methods = methods_.array();
    policy_.errors = readNumbers();
    policy_.statuses = readNumbers();
    policy_.refusals = readNumbers();
    policy_.budget_share = reader.number<double>();
    policy_.budget_at_start = reader.number<double>();
    policy_.budget_at_most = reader.number<double>();
}

Reply::Reply(std::string bytes)
    : bytes_(std::move(bytes)), reply_(blank<kestrin_transfer_reply>()) {
    Reader reader(bytes_);
    reply_.status = reader.number<std::int32_t>();
    headers_ = {reader, [](Reader& from) {
                    kestrin_header header{};
                    header.name = from.text();
                    header.value = from.text();
                    return header;
                }};
    reply_.headers = headers_.array();
    reply_.body = reader.text();
    reply_.effective_url = reader.text();
}

kestrin_session_options readSessionOptions(std::string_view bytes) {
    Reader reader(bytes);
    auto options = blank<kestrin_session_options>();
    options.profile_id = reader.text();
    options.brand_id = reader.text();
    options.without_repeats = reader.boolean();
    options.deadline_ms = reader.optionalNumber();
    return options;
}

kestrin_outbox_options readOutboxOptions(std::string_view bytes) {
    Reader reader(bytes);
    auto options = blank<kestrin_outbox_options>();
    options.file = reader.text();
    options.max_entries = static_cast<std::size_t>(reader.number<std::int64_t>());
    options.max_age_ms = reader.number<std::int64_t>();
    options.max_refused = static_cast<std::size_t>(reader.number<std::int64_t>());
    options.compare_after_ms = reader.number<std::int64_t>();
    options.first_delay_ms = reader.number<std::int64_t>();
    options.longest_delay_ms = reader.number<std::int64_t>();
    options.removal_delay_ms = reader.number<std::int64_t>();
    options.longest_request_ms = reader.number<std::int64_t>();
    return options;
}

kestrin_reporter_options readReporterOptions(std::string_view bytes) {
    Reader reader(bytes);
    auto options = blank<kestrin_reporter_options>();
    options.profile_id = reader.text();
    options.brand_id = reader.text();
    options.video_id = reader.text();
    options.interval_ms = reader.number<std::int64_t>();
    return options;
}

}  // namespace KestrinJava
