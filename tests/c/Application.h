#ifndef TESTS_C_APPLICATION_H
#define TESTS_C_APPLICATION_H

/* An application in C: what the tests have it do, and what it notices. */

#include <KestrinC/kestrin_profile.h>

#ifdef __cplusplus
extern "C" {
#endif

/* ---- A completion that counts -----------------------------------------------------------------
 */

typedef struct app_ending {
    int completed;
    int released;
    int completed_after_release; /* of `completed`, those that came too late */
    kestrin_result* result;      /* of the last one */
    /* What it does in its completion; may be NULL. */
    void (*in_completion)(struct app_ending* ending);
    kestrin_request* request;
    void* more;
} app_ending;

kestrin_completion app_completion(app_ending* ending);

/* Releases the result, and forgets everything. */
void app_forget(app_ending* ending);

/* ---- A transport that answers from a script or lets transfers wait ------------------------------
 */

#define APP_MOST 64

typedef struct app_transport {
    int status; /* of each reply; 0: transfers wait */
    const char* body;
    const char* content_type;
    int sent;
    int cancelled;
    int released;
    kestrin_transfer* waiting[APP_MOST]; /* in the order in which they came */
    const kestrin_transfer_request* requests[APP_MOST];
    int waiting_count;
    char last_method[16];
    char last_url[512];
    char last_body[512]; /* "(none)" if there was none */
    char last_request_id[64];
    char last_token[64];
} app_transport;

kestrin_transport app_transport_hooks(app_transport* transport);

/* Answers the waiting transfer that came first. */
kestrin_status app_answer(app_transport* transport, int status, const char* body);
kestrin_status app_fail(app_transport* transport, kestrin_transfer_error error);

/* ---- An executor that keeps its tasks
 * ------------------------------------------------------------ */

typedef struct app_executor {
    kestrin_task* tasks[APP_MOST];
    int count;
    int released;
} app_executor;

kestrin_executor_hooks app_executor_hooks(app_executor* executor);

/* ---- A clock that a test moves
 * ------------------------------------------------------------------- */

typedef struct app_clock {
    int64_t now_ns;
    kestrin_task* task; /* the one that waits */
    uint64_t id;
    int64_t delay_ns;
    int asked;
    int cancelled;
    int released;
    bool refuses;
} app_clock;

kestrin_clock app_clock_hooks(app_clock* clock);

/* ---- Where binds are kept, and what a household tells
 * -------------------------------------------- */

typedef struct app_store {
    const char* profile_id; /* of what it has; NULL: nothing */
    const char* token;
    kestrin_status added;
    int saved;
    uint64_t revision;
    size_t last_count;
    char last_selected[64];
    int released;
} app_store;

kestrin_bind_store app_store_hooks(app_store* store);

typedef struct app_log {
    int events;
    char last[256];
    int released;
} app_log;

kestrin_household_log app_log_hooks(app_log* log);

/* ---- Calls, as C writes them
 * --------------------------------------------------------------------- */

/* A call with all that any operation needs. */
kestrin_call app_call(kestrin_operation operation);

/* How many entries of a list have this type; the list's one pass in C. */
size_t app_count_of_type(const kestrin_list* list, const char* type);

#ifdef __cplusplus
}
#endif

#endif
