#include "Application.h"

#include <stdio.h>
#include <stdlib.h>

/* ---- A completion that counts -----------------------------------------------------------------
 */

static void completed(void* context, kestrin_result* result) {
    app_ending* ending = context;
    ++ending->completed;
    if (ending->released > 0) ++ending->completed_after_release;
    ending->result = result;
    if (ending->in_completion) ending->in_completion(ending);
}

static void ending_released(void* context) {
    app_ending* ending = context;
    ++ending->released;
}

kestrin_completion app_completion(app_ending* ending) {
    kestrin_completion completion = {.size = sizeof completion,
                                     .context = ending,
                                     .completed = completed,
                                     .release_context = ending_released};
    return completion;
}

void app_forget(app_ending* ending) {
    kestrin_result_release(ending->result);
    memset(ending, 0, sizeof *ending);
}

/* ---- A transport -------------------------------------------------------------------------------
 */

static void copy(char* place, size_t size, kestrin_text text) {
    snprintf(place, size, "%.*s", (int)text.length, text.data ? text.data : "");
}

static bool is(kestrin_text text, const char* expected) {
    return text.length == strlen(expected) && memcmp(text.data, expected, text.length) == 0;
}

static void note(app_transport* transport, const kestrin_transfer_request* request) {
    copy(transport->last_method, sizeof transport->last_method, request->method);
    copy(transport->last_url, sizeof transport->last_url, request->url);
    copy(transport->last_body, sizeof transport->last_body,
         request->body.data ? request->body : kestrin_text_of("(none)"));
    transport->last_token[0] = transport->last_request_id[0] = '\0';
    for (size_t index = 0; index < request->headers.count; ++index) {
        const kestrin_header* header = &request->headers.first[index];
        if (is(header->name, "X-Request-ID"))
            copy(transport->last_request_id, sizeof transport->last_request_id, header->value);
        if (is(header->name, "Authorization"))
            copy(transport->last_token, sizeof transport->last_token, header->value);
    }
}

static kestrin_status finish(kestrin_transfer* transfer, int status, const char* body,
                             const char* content_type) {
    kestrin_header header = {kestrin_text_of("Content-Type"), kestrin_text_of(content_type)};
    kestrin_transfer_reply reply = {.size = sizeof reply,
                                    .status = status,
                                    .headers = {&header, content_type ? 1 : 0},
                                    .body = kestrin_text_of(body)};
    return kestrin_transfer_finish(transfer, &reply);
}

static void send_it(void* context, const kestrin_transfer_request* request,
                    kestrin_transfer* transfer) {
    app_transport* transport = context;
    ++transport->sent;
    note(transport, request);
    if (transport->status != 0) {
        finish(transfer, transport->status, transport->body, transport->content_type);
        return;
    }
    if (transport->waiting_count == APP_MOST) abort();
    transport->requests[transport->waiting_count] = request;
    transport->waiting[transport->waiting_count++] = transfer;
}

static void cancel_it(void* context, uint64_t id) {
    app_transport* transport = context;
    if (id != 0) ++transport->cancelled;
}

static void transport_released(void* context) {
    app_transport* transport = context;
    ++transport->released;
}

kestrin_transport app_transport_hooks(app_transport* transport) {
    kestrin_transport hooks = {.size = sizeof hooks,
                               .context = transport,
                               .send = send_it,
                               .cancel = cancel_it,
                               .release_context = transport_released};
    return hooks;
}

static kestrin_transfer* take_first(app_transport* transport) {
    if (transport->waiting_count == 0) abort();
    kestrin_transfer* first = transport->waiting[0];
    --transport->waiting_count;
    for (int index = 0; index < transport->waiting_count; ++index) {
        transport->waiting[index] = transport->waiting[index + 1];
        transport->requests[index] = transport->requests[index + 1];
    }
    return first;
}

kestrin_status app_answer(app_transport* transport, int status, const char* body) {
    return finish(take_first(transport), status, body, transport->content_type);
}

kestrin_status app_fail(app_transport* transport, kestrin_transfer_error error) {
    return kestrin_transfer_fail(take_first(transport), error,
                                 kestrin_text_of("as the test wants"));
}

/* ---- An executor -------------------------------------------------------------------------------
 */

static void execute(void* context, kestrin_task* task) {
    app_executor* executor = context;
    if (executor->count == APP_MOST) abort();
    executor->tasks[executor->count++] = task;
}

static void executor_released(void* context) {
    app_executor* executor = context;
    ++executor->released;
}

kestrin_executor_hooks app_executor_hooks(app_executor* executor) {
    kestrin_executor_hooks hooks = {.size = sizeof hooks,
                                    .context = executor,
                                    .execute = execute,
                                    .release_context = executor_released};
    return hooks;
}

/* ---- A clock -----------------------------------------------------------------------------------
 */

static int64_t steady_ns(void* context) {
    const app_clock* clock = context;
    return clock->now_ns;
}

static int64_t wall_ms(void* context) {
    const app_clock* clock = context;
    return INT64_C(1700000000000) + clock->now_ns / 1000000;
}

static bool after(void* context, uint64_t id, int64_t delay_ns, kestrin_task* task) {
    app_clock* clock = context;
    ++clock->asked;
    if (clock->refuses) return false;
    if (clock->task) kestrin_task_drop(clock->task);
    clock->task = task;
    clock->id = id;
    clock->delay_ns = delay_ns;
    return true;
}

static void cancel_task(void* context, uint64_t id) {
    app_clock* clock = context;
    ++clock->cancelled;
    if (id != clock->id || !clock->task) return;
    kestrin_task_drop(clock->task);
    clock->task = NULL;
}

static void clock_released(void* context) {
    app_clock* clock = context;
    ++clock->released;
}

kestrin_clock app_clock_hooks(app_clock* clock) {
    kestrin_clock hooks = {.size = sizeof hooks,
                           .context = clock,
                           .steady_ns = steady_ns,
                           .wall_ms = wall_ms,
                           .after = after,
                           .cancel = cancel_task,
                           .release_context = clock_released};
    return hooks;
}

/* ---- A store and a log
 * --------------------------------------------------------------------------- */

static void load(void* context, kestrin_loaded_binds* loaded) {
    app_store* store = context;
    if (!store->profile_id) return;
    kestrin_bind bind = {.size = sizeof bind,
                         .profile_id = kestrin_text_of(store->profile_id),
                         .token = kestrin_text_of(store->token)};
    store->added = kestrin_loaded_binds_add(loaded, &bind);
    kestrin_loaded_binds_select(loaded, kestrin_text_of(store->profile_id));
}

static void save(void* context, const kestrin_binds* binds, kestrin_text selected_profile_id,
                 uint64_t revision) {
    app_store* store = context;
    ++store->saved;
    store->revision = revision;
    store->last_count = binds->count;
    copy(store->last_selected, sizeof store->last_selected, selected_profile_id);
}

static void store_released(void* context) {
    app_store* store = context;
    ++store->released;
}

kestrin_bind_store app_store_hooks(app_store* store) {
    kestrin_bind_store hooks = {.size = sizeof hooks,
                                .context = store,
                                .load = load,
                                .save = save,
                                .release_context = store_released};
    return hooks;
}

static void household_event(void* context, const kestrin_household_event* event) {
    app_log* log = context;
    ++log->events;
    copy(log->last, sizeof log->last, event->text);
}

static void log_released(void* context) {
    app_log* log = context;
    ++log->released;
}

kestrin_household_log app_log_hooks(app_log* log) {
    kestrin_household_log hooks = {.size = sizeof hooks,
                                   .context = log,
                                   .event = household_event,
                                   .release_context = log_released};
    return hooks;
}

/* ---- Calls -------------------------------------------------------------------------------------
 */

kestrin_call app_call(kestrin_operation operation) {
    static kestrin_user user;
    user.size = sizeof user;
    user.profile_id = kestrin_text_of("kid");
    user.username = kestrin_text_of("Ann");
    static kestrin_entry shows[2];
    for (size_t index = 0; index < 2; ++index) {
        shows[index].size = sizeof shows[index];
        shows[index].id = kestrin_text_of(index == 0 ? "s1" : "s2");
        shows[index].type = kestrin_text_of("SHOW");
    }
    kestrin_call call = {.size = sizeof call,
                         .operation = operation,
                         .profile_id = kestrin_text_of("kid"),
                         .video_id = kestrin_text_of("v1"),
                         .show_id = kestrin_text_of("s1"),
                         .user_name = kestrin_text_of("Ann"),
                         .search = kestrin_text_of("cats"),
                         .progress = {true, 62},
                         .is_complete = {true, false},
                         .user = &user,
                         .shows = {shows, 2, sizeof shows[0]}};
    return call;
}

size_t app_count_of_type(const kestrin_list* list, const char* type) {
    size_t count = 0;
    for (size_t index = 0; index < list->entries.count; ++index)
        if (is(kestrin_entry_at(&list->entries, index)->type, type)) ++count;
    return count;
}
