/* Puts a video on the parent's watch list, and shows the list: first CONFIGURATION VIDEO */
#include <KestrinC/kestrin_profile.h>
#include <pthread.h>
#include <stdio.h>

struct waiting {
    pthread_mutex_t mutex;
    pthread_cond_t ended;
    kestrin_result* result;
};

static void completed(void* context, kestrin_result* result) {
    struct waiting* waiting = context;
    pthread_mutex_lock(&waiting->mutex);
    waiting->result = result;
    pthread_cond_signal(&waiting->ended);
    pthread_mutex_unlock(&waiting->mutex);
}

/* An application with a window would go on in `completed` instead. */
static kestrin_result* wait_for(kestrin_session* session, const kestrin_call* call) {
    struct waiting waiting = {PTHREAD_MUTEX_INITIALIZER, PTHREAD_COND_INITIALIZER, NULL};
    const kestrin_completion completion = {
        .size = sizeof completion, .context = &waiting, .completed = completed};
    if (kestrin_session_start(session, call, &completion, NULL) != KESTRIN_OK) return NULL;
    pthread_mutex_lock(&waiting.mutex);
    while (!waiting.result)
        pthread_cond_wait(&waiting.ended, &waiting.mutex);
    pthread_mutex_unlock(&waiting.mutex);
    return waiting.result;
}

static int show(const kestrin_result* result) {
    if (!result) return fprintf(stderr, "%s\n", kestrin_last_problem()), 1;
    if (result->error) {
        const kestrin_text* message = &result->error->message;
        return fprintf(stderr, "%.*s\n", (int)message->length, message->data), 1;
    }
    if (!result->list) return 0;
    for (size_t index = 0; index < result->list->entries.count; ++index) {
        const kestrin_entry* entry = kestrin_entry_at(&result->list->entries, index);
        printf("%.*s\n", (int)entry->id.length, entry->id.data);
    }
    return 0;
}

static int run(kestrin_session* session, const char* video) {
    const kestrin_call add = {.size = sizeof add,
                              .operation = KESTRIN_ADD_WATCH_LIST_VIDEO,
                              .video_id = kestrin_text_of(video)};
    const kestrin_call get = {.size = sizeof get, .operation = KESTRIN_GET_WATCH_LIST};
    int status = 0;
    for (int step = 0; step < 2 && status == 0; ++step) {
        kestrin_result* result = wait_for(session, step == 0 ? &add : &get);
        status = show(result);
        kestrin_result_release(result);
    }
    return status;
}

int main(int argc, char** argv) {
    static char configuration[1 << 16];
    FILE* file = argc == 3 ? fopen(argv[1], "rb") : NULL;
    if (!file) return fprintf(stderr, "usage: first CONFIGURATION VIDEO\n"), 2;
    const kestrin_text json = {configuration, fread(configuration, 1, sizeof configuration, file)};
    fclose(file);

    kestrin_household* household = NULL;
    kestrin_session* session = NULL;
    int status = 2;
    if (kestrin_configure(json) == KESTRIN_OK &&
        kestrin_household_create(NULL, &household) == KESTRIN_OK &&
        kestrin_household_session(household, NULL, &session) == KESTRIN_OK)
        status = run(session, argv[2]);
    else
        fprintf(stderr, "%s\n", kestrin_last_problem());
    kestrin_session_release(session);
    kestrin_household_release(household);
    return status;
}
