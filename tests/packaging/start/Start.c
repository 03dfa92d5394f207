/* What an application pays for the library before anything is sent, and while nothing happens:
 * start CONFIGURATION
 *
 * A session's first request goes to a transport of the program's own, which answers it. Shown are
 * the moment at which the request was ready (CLOCK_MONOTONIC, ns), the bytes of the heap that the
 * session then holds, and all memory that the process has written to and shares with nobody. */
#include <inttypes.h>
#include <malloc.h>
#include <stdio.h>
#include <time.h>

#include <KestrinC/kestrin_profile.h>

static int64_t ready_at = 0;

static int64_t now(void) {
    struct timespec time;
    clock_gettime(CLOCK_MONOTONIC, &time);
    return (int64_t)time.tv_sec * 1000000000 + time.tv_nsec;
}

static void answer(void* context, const kestrin_transfer_request* request,
                   kestrin_transfer* transfer) {
    (void)context;
    (void)request;
    ready_at = now();
    const kestrin_header type = {kestrin_text_of("Content-Type"),
                                 kestrin_text_of("application/json")};
    const kestrin_transfer_reply reply = {.size = sizeof reply,
                                          .status = 200,
                                          .headers = {&type, 1},
                                          .body = kestrin_text_of("{\"elements\":[]}")};
    kestrin_transfer_finish(transfer, &reply);
}

static void completed(void* context, kestrin_result* result) {
    *(kestrin_outcome*)context = result->outcome;
    kestrin_result_release(result);
}

static size_t private_bytes(void) {
    char line[256];
    size_t all = 0;
    FILE* file = fopen("/proc/self/smaps_rollup", "r");
    while (file && fgets(line, sizeof line, file)) {
        size_t kilobytes = 0;
        if (sscanf(line, "Private_Dirty: %zu kB", &kilobytes) == 1) all += kilobytes * 1024;
    }
    if (file) fclose(file);
    return all;
}

int main(int argc, char** argv) {
    static char configuration[1 << 16];
    FILE* file = argc == 2 ? fopen(argv[1], "rb") : NULL;
    if (!file) return fprintf(stderr, "usage: start CONFIGURATION\n"), 2;
    const kestrin_text json = {configuration, fread(configuration, 1, sizeof configuration, file)};
    fclose(file);
    const size_t heap_before = mallinfo2().uordblks;

    kestrin_household* household = NULL;
    kestrin_session* session = NULL;
    const kestrin_transport transport = {.size = sizeof transport, .send = answer};
    const kestrin_bind bind = {sizeof bind, kestrin_text_of("parent"),
                               kestrin_text_of("a.held.bind")};
    const kestrin_call call = {.size = sizeof call, .operation = KESTRIN_GET_HISTORY};
    kestrin_outcome outcome = KESTRIN_ERROR;
    const kestrin_completion completion = {
        .size = sizeof completion, .context = &outcome, .completed = completed};
    if (kestrin_set_transport(&transport) != KESTRIN_OK || kestrin_configure(json) != KESTRIN_OK ||
        kestrin_store_bind(&bind) != KESTRIN_OK ||
        kestrin_household_create(NULL, &household) != KESTRIN_OK ||
        kestrin_household_session(household, NULL, &session) != KESTRIN_OK ||
        kestrin_session_start(session, &call, &completion, NULL) != KESTRIN_OK ||
        outcome != KESTRIN_VALUE)
        return fprintf(stderr, "%s\n", kestrin_last_problem()), 1;
    printf("%" PRId64 " %zu %zu\n", ready_at, mallinfo2().uordblks - heap_before, private_bytes());
    kestrin_session_release(session);
    kestrin_household_release(household);
    return 0;
}
