#ifndef KESTRIN_PROFILE_H
#define KESTRIN_PROFILE_H

/**
 * @file
 * KestrinProfile for C, and for every language that can call C: the personalization service of a
 * household, with its sessions, outbox and playback reporter. C11; the library exports what begins
 * with kestrin_ and nothing else. docs/c-interface.md has a first program.
 *
 * HANDLES. What a ..._create function or a `request` argument gives is a handle. It belongs to the
 * caller and ends with one call of its ..._release function. Releasing NULL does nothing. A handle
 * may be used from any thread; its release is the last use of it. A NULL handle is refused with
 * KESTRIN_INVALID_ARGUMENT. A library that was built with checks (KESTRIN_C_CHECKED, on in debug
 * builds) ends the process instead, if a handle is NULL, was released, or never was one, with a
 * message on stderr that names the function. It does not find a handle whose release begins while
 * another thread is using it, nor one whose memory a new handle of the same kind has meanwhile: it
 * keeps that of the last 10,000 that were released.
 *
 * STRUCTURES begin with their size (set it to sizeof of the structure) and grow at their end. What
 * is zero is absent, or as the member says. A structure that is larger than the library knows is
 * taken if the rest of it is zero. Arrays of structures say how far the elements are apart
 * (`stride`), so that those can grow; the functions ..._at read them. What has no size stays as it
 * is for ever: kestrin_text and kestrin_texts, kestrin_header and kestrin_headers, kestrin_int32s,
 * kestrin_optional_int64 and kestrin_optional_bool, and the arrays themselves. A time that is
 * handed in may not be negative unless its member says what that means.
 *
 * TEXTS are UTF-8 with a length, without a zero at the end. `data` NULL is an absent text, which is
 * another thing than an empty one. What is handed in is copied before the function returns. A text
 * that is not UTF-8 (RFC 3629; overlong forms and surrogates, as Java's modified UTF-8 has them,
 * are not) is refused with KESTRIN_INVALID_UTF8, and nothing is sent.
 *
 * PROBLEMS OF A CALL. A function returns a status, and kestrin_last_problem() says more about it.
 * No exception leaves a function: a lack of memory is KESTRIN_OUT_OF_MEMORY. A function that fails
 * has no effect.
 *
 * REQUESTS. A function with a kestrin_completion begins something and does not wait for it. If it
 * returns KESTRIN_OK:
 *  1. `completed` is called exactly once, with a result that belongs to the callee: a value, an
 *     error, or KESTRIN_CANCELLED. It may be called before the function has returned.
 *  2. `release_context` is called exactly once, after `completed` has returned; the library touches
 *     the context no more after that.
 * If it returns anything else, `completed` is not called, and `release_context` was called before
 * it returned: whatever it returns, the context is the library's. (Only a completion that is NULL,
 * or whose size is wrong, is not read at all.)
 *
 * THREADS. `completed` is called by the completion's executor; without one where the result
 * arrives: on the thread that calls kestrin_transfer_finish or kestrin_transfer_fail, the network
 * thread of the built-in transport, the thread that runs a task of the clock, an outbox's thread,
 * the thread that cancels or that releases the household or outbox, or the caller's, before the
 * function has returned. No lock is held. It must not block; it may call every function here.
 *
 * CANCELLING. kestrin_request_cancel may be called from any thread at any time, also inside a
 * completion. It does not wait: if the completion has not begun and no result is on its way to the
 * executor, it is called with KESTRIN_CANCELLED; otherwise nothing happens. Releasing a request
 * does not cancel it.
 *
 * HOOKS are structures of functions that the application fills in. The library takes their contexts
 * over as it does a completion's: each is released exactly once, when nothing uses the hooks any
 * more, or before a function that refuses them returns (hooks whose size is wrong are not read at
 * all). A hook must not block and must not throw; it may be called from any thread, several at
 * once. A clock's functions and a bind store's `save` may be called while the library holds a lock:
 * they must not call this library, except that a clock may call kestrin_task_drop. All other hooks
 * are called with no lock held. An event for which there is no memory is not told.
 *
 * When a process ends by exit, what is open then may never be completed or released.
 */

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>
#include <string.h>

/** What the library exports. @hideinitializer */
#if defined(_WIN32)
#if defined(KESTRIN_C_BUILDING)
#define KESTRIN_C_EXPORT __declspec(dllexport)
#else
#define KESTRIN_C_EXPORT __declspec(dllimport)
#endif
#else
#define KESTRIN_C_EXPORT __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ---- What every part uses ------------------------------------------------------------------- */

/** What a function says. The numbers never change; some may be added. */
typedef int32_t kestrin_status;
enum {
    KESTRIN_OK = 0,               /**< it has done what was asked for */
    KESTRIN_INVALID_ARGUMENT = 1, /**< what was handed in is not what the function takes */
    KESTRIN_INVALID_UTF8 = 2,     /**< a text that was handed in is not UTF-8 */
    KESTRIN_OUT_OF_MEMORY = 3,    /**< there was no memory for it */
    KESTRIN_NOT_AVAILABLE = 4,    /**< this library was built without it */
    KESTRIN_FAILED = 5            /**< the system refused, for example a thread */
};

/** The library's version, e.g. "0.1.0". */
KESTRIN_C_EXPORT const char* kestrin_version(void);

/**
 * Why the last function that failed on this thread did, e.g. "kestrin_session_start: call.video_id
 * is not UTF-8, from byte 3 on". Never NULL, at most 1023 bytes, without secrets; it stays as it is
 * until the next function fails on this thread. For whoever develops, not for viewers.
 */
KESTRIN_C_EXPORT const char* kestrin_last_problem(void);

/** A text, or bytes: see TEXTS. */
typedef struct kestrin_text {
    const char* data; /**< NULL: absent */
    size_t length;    /**< in bytes */
} kestrin_text;

/** A text that ends with a zero; NULL is an absent one. */
static inline kestrin_text kestrin_text_of(const char* zero_terminated) {
    kestrin_text text;
    text.data = zero_terminated;
    text.length = zero_terminated ? strlen(zero_terminated) : 0;
    return text;
}

/** A number, or none. */
typedef struct kestrin_optional_int64 {
    bool present;  /**< false: absent */
    int64_t value; /**< says nothing if absent */
} kestrin_optional_int64;

/** A truth, or none. */
typedef struct kestrin_optional_bool {
    bool present; /**< false: absent */
    bool value;   /**< says nothing if absent */
} kestrin_optional_bool;

/** Texts. */
typedef struct kestrin_texts {
    const kestrin_text* first; /**< the array; NULL if there is none */
    size_t count;              /**< how many */
} kestrin_texts;

/** Numbers. */
typedef struct kestrin_int32s {
    const int32_t* first; /**< the array; NULL if there is none */
    size_t count;         /**< how many */
} kestrin_int32s;

/** The operations, in the order of the service's own. */
typedef int32_t kestrin_operation;
enum {
    KESTRIN_ANONYMOUS_BIND = 1,           /**< obtains a profile's bind */
    KESTRIN_VALIDATE_PROFILE_NAME = 2,    /**< asks whether a name may be given to a profile */
    KESTRIN_CREATE_PROFILE = 3,           /**< creates a profile */
    KESTRIN_GET_PROFILES = 4,             /**< lists the household's profiles */
    KESTRIN_EDIT_PROFILE = 5,             /**< changes a profile */
    KESTRIN_DELETE_PROFILE = 6,           /**< deletes a profile with its lists */
    KESTRIN_GET_HISTORY = 7,              /**< the viewing history */
    KESTRIN_GET_VIDEO_HISTORY = 8,        /**< the history's entry of one video */
    KESTRIN_ADD_HISTORY_VIDEO = 9,        /**< records how far a video was watched */
    KESTRIN_DELETE_VIDEO_HISTORY = 10,    /**< removes a video from the history */
    KESTRIN_CLEAR_HISTORY = 11,           /**< empties the history */
    KESTRIN_GET_FAVORITES = 12,           /**< the favourite shows */
    KESTRIN_ADD_FAVORITE_SHOW = 13,       /**< adds one */
    KESTRIN_ADD_FAVORITE_SHOWS = 14,      /**< adds several */
    KESTRIN_DELETE_FAVORITE_SHOW = 15,    /**< removes one */
    KESTRIN_CLEAR_FAVORITES = 16,         /**< removes all */
    KESTRIN_GET_WATCH_LIST = 17,          /**< the videos to watch */
    KESTRIN_ADD_WATCH_LIST_VIDEO = 18,    /**< adds one */
    KESTRIN_DELETE_WATCH_LIST_VIDEO = 19, /**< removes one */
    KESTRIN_CLEAR_WATCH_LIST = 20,        /**< removes all */
    KESTRIN_ADD_SEARCH_HISTORY = 21,      /**< records a search text */
    KESTRIN_DELETE_SEARCH_HISTORY = 22    /**< deletes all of a brand */
};

/**
 * The service's name of an operation, e.g. "personalization-history-get"; "" for a number that is
 * none. Lives as long as the process.
 */
KESTRIN_C_EXPORT const char* kestrin_operation_name(kestrin_operation operation);

/* ---- Records -------------------------------------------------------------------------------- */

/** The right to act for a profile. The token is a secret. */
typedef struct kestrin_bind {
    size_t size;             /**< sizeof(kestrin_bind) */
    kestrin_text profile_id; /**< whose it is */
    kestrin_text token;      /**< what the service issued */
} kestrin_bind;

/** A profile of the household. */
typedef struct kestrin_user {
    size_t size;             /**< sizeof(kestrin_user) */
    kestrin_text profile_id; /**< absent until the service has created the profile */
    kestrin_text username;   /**< the display name */
    kestrin_text avatar;     /**< the picture, as the application names it */
    kestrin_text group;      /**< what the service sorts the profile into */
    bool default_user;       /**< whether it is the household's default profile */
} kestrin_user;

/** An entry of a list: a video of the history, a favourite show, a video to watch. */
typedef struct kestrin_entry {
    size_t size;       /**< sizeof(kestrin_entry) */
    kestrin_text id;   /**< the video or show */
    kestrin_text type; /**< "SHOW", "VIDEO", "GAME", "COLLECTION", or what else was sent */
    kestrin_optional_int64 progress;           /**< in seconds */
    kestrin_optional_bool is_completed;        /**< whether it was watched to the end */
    kestrin_optional_int64 auto_add_timestamp; /**< microseconds since 1970, UTC */
} kestrin_entry;

/** Binds; read by kestrin_bind_at. */
typedef struct kestrin_binds {
    const kestrin_bind* first; /**< the array */
    size_t count;              /**< how many */
    size_t stride;             /**< sizeof(kestrin_bind) of who made the array */
} kestrin_binds;

/** Profiles; read by kestrin_user_at. */
typedef struct kestrin_users {
    const kestrin_user* first; /**< the array */
    size_t count;              /**< how many */
    size_t stride;             /**< sizeof(kestrin_user) of who made the array */
} kestrin_users;

/** Entries of a list; read by kestrin_entry_at. */
typedef struct kestrin_entries {
    const kestrin_entry* first; /**< the array */
    size_t count;               /**< how many */
    size_t stride;              /**< sizeof(kestrin_entry) of who made the array */
} kestrin_entries;

/** The element of an array; `index` is less than `count`. */
static inline const kestrin_bind* kestrin_bind_at(const kestrin_binds* array, size_t index) {
    return (const kestrin_bind*)(const void*)((const char*)array->first + index * array->stride);
}
/** The same for profiles. */
static inline const kestrin_user* kestrin_user_at(const kestrin_users* array, size_t index) {
    return (const kestrin_user*)(const void*)((const char*)array->first + index * array->stride);
}
/** The same for entries. */
static inline const kestrin_entry* kestrin_entry_at(const kestrin_entries* array, size_t index) {
    return (const kestrin_entry*)(const void*)((const char*)array->first + index * array->stride);
}

/** A list as the service has it. */
typedef struct kestrin_list {
    size_t size;                     /**< sizeof(kestrin_list) */
    kestrin_text id;                 /**< the list's identifier */
    kestrin_optional_int64 max_size; /**< how many entries the service keeps in it */
    bool has_entries;                /**< false: the service sent no usable list */
    kestrin_entries entries;         /**< in the service's order */
} kestrin_list;

/** A header field. */
typedef struct kestrin_header {
    kestrin_text name;  /**< a token (RFC 9110) */
    kestrin_text value; /**< as it stands in the message */
} kestrin_header;

/** Header fields, in order. */
typedef struct kestrin_headers {
    const kestrin_header* first; /**< the array */
    size_t count;                /**< how many */
} kestrin_headers;

/** A reply as it came. Its headers' values are bytes, not texts: they need not be UTF-8. */
typedef struct kestrin_response {
    size_t size;             /**< sizeof(kestrin_response) */
    int32_t status;          /**< e.g. 200 */
    kestrin_headers headers; /**< of the final reply */
    kestrin_text body;       /**< bytes of any kind */
} kestrin_response;

/** What to show a viewer of an error; docs/household.md says which error is which. */
typedef int32_t kestrin_notice;
enum {
    KESTRIN_SHOW_NOTHING = 0,       /**< it was cancelled: somebody wanted it so */
    KESTRIN_SHOW_NO_NETWORK = 1,    /**< the device reaches nobody */
    KESTRIN_SHOW_SERVICE_DOWN = 2,  /**< try again later */
    KESTRIN_SHOW_SIGN_IN_AGAIN = 3, /**< nobody is signed in any more */
    KESTRIN_SHOW_NOT_ALLOWED = 4,   /**< the profile may not do this */
    KESTRIN_SHOW_MEND_INPUT = 5,    /**< what was entered or chosen is not taken */
    KESTRIN_SHOW_NOT_SECURE = 6,    /**< nobody vouches for the service */
    KESTRIN_SHOW_BROKEN = 7,  /**< the application, its configuration or the service is at fault */
    KESTRIN_SHOW_UNKNOWN = 8, /**< an error of nobody here */
    KESTRIN_SHOW_NO_SPACE = 9 /**< the device keeps nothing any more */
};

/** Why a request failed. */
typedef struct kestrin_error {
    size_t size;             /**< sizeof(kestrin_error) */
    kestrin_text domain;     /**< who says it, e.g. "HalvardSling.SlingError" */
    int32_t code;            /**< the error's number in its domain */
    int32_t status;          /**< of the reply; 0: there was none with an error status */
    kestrin_notice notice;   /**< what to show a viewer */
    kestrin_text message;    /**< for people who investigate; no secrets */
    kestrin_text advice;     /**< what the caller should do */
    kestrin_text request_id; /**< what the service's log knows the request by; may be empty */
    /** The problem document of the reply (RFC 9457); empty if it has none. */
    kestrin_text problem_type;
    kestrin_text problem_title;  /**< the kind in words */
    kestrin_text problem_detail; /**< what is wrong this time */
} kestrin_error;

/** The codes of the domain "HalvardSling.SlingError": what can go wrong on the way. */
typedef int32_t kestrin_transfer_error;
enum {
    KESTRIN_HTTP_STATUS = 0,             /**< the service answered with a status of 400 or above */
    KESTRIN_CANNOT_CONNECT = 1,          /**< no connection could be made; nothing was sent */
    KESTRIN_NAME_NOT_RESOLVED = 2,       /**< the host's name is unknown; nothing was sent */
    KESTRIN_TLS = 3,                     /**< the handshake or the check of the peer failed */
    KESTRIN_CONNECT_TIMEOUT = 4,         /**< connecting took too long; nothing was sent */
    KESTRIN_TOTAL_TIMEOUT = 5,           /**< all of it took too long; it may have taken effect */
    KESTRIN_CONNECTION_LOST = 6,         /**< the reply is not whole; it may have taken effect */
    KESTRIN_TOO_LARGE = 7,               /**< the reply exceeds its limits */
    KESTRIN_MALFORMED_URL = 8,           /**< nothing may be sent there */
    KESTRIN_FORBIDDEN_HEADER = 9,        /**< no header may carry that; nothing was sent */
    KESTRIN_MALFORMED_REPLY = 10,        /**< the reply is not what was agreed */
    KESTRIN_REDIRECT = 11,               /**< too many redirects, or one that may not be followed */
    KESTRIN_TRANSFER_CANCELLED = 12,     /**< the transport was shut down */
    KESTRIN_TRANSFER_OUT_OF_MEMORY = 13, /**< no memory was left for it */
    KESTRIN_MALFORMED_BODY = 14          /**< a text in the body is not UTF-8; nothing was sent */
};

/** The codes of the domain "KestrinHousehold.OutboxError": why an outbox has not kept a write. */
typedef int32_t kestrin_outbox_error;
enum {
    KESTRIN_OUTBOX_INVALID_WRITE = 0,     /**< the write is incomplete */
    KESTRIN_OUTBOX_FULL = 1,              /**< it holds as many writes as it may */
    KESTRIN_OUTBOX_STORE_UNAVAILABLE = 2, /**< its file cannot be used */
    KESTRIN_OUTBOX_NOT_STORED = 3,        /**< the disk is full or fails */
    KESTRIN_OUTBOX_CLOSED = 4             /**< the outbox was released */
};

/* ---- Outbox records ------------------------------------------------------------------------- */

/** A change of a profile's lists, as an outbox keeps it. */
typedef struct kestrin_write {
    size_t size;                 /**< sizeof(kestrin_write) */
    kestrin_text profile_id;     /**< whose lists */
    kestrin_text brand_id;       /**< may be absent: none */
    kestrin_operation operation; /**< one that changes a list */
    kestrin_text item_id;  /**< the video, the show or the search text; absent for whole lists */
    kestrin_entries shows; /**< of KESTRIN_ADD_FAVORITE_SHOWS */
    kestrin_optional_int64 progress;   /**< in seconds */
    kestrin_optional_bool is_complete; /**< whether it was watched to the end */
} kestrin_write;

/** Why the service does not take a write. */
typedef struct kestrin_refusal {
    size_t size;         /**< sizeof(kestrin_refusal) */
    int64_t at_ms;       /**< milliseconds since 1970, by the device's clock */
    int32_t status;      /**< 0: the request could not be made */
    kestrin_text title;  /**< the kind of problem, for people */
    kestrin_text detail; /**< what is wrong, for people */
} kestrin_refusal;

/** A write in an outbox. */
typedef struct kestrin_kept {
    size_t size;                /**< sizeof(kestrin_kept) */
    int64_t number;             /**< what was accepted later has a higher one; 0: not accepted */
    const kestrin_write* write; /**< what is to be sent */
    int64_t accepted_at_ms;     /**< milliseconds since 1970, by the device's clock */
    const kestrin_refusal* refusal; /**< NULL while it waits */
} kestrin_kept;

/** Writes of an outbox; read by kestrin_kept_at. */
typedef struct kestrin_kept_writes {
    const kestrin_kept* first; /**< the array */
    size_t count;              /**< how many */
    size_t stride;             /**< sizeof(kestrin_kept) of who made the array */
} kestrin_kept_writes;

/** The same for writes of an outbox. */
static inline const kestrin_kept* kestrin_kept_at(const kestrin_kept_writes* array, size_t index) {
    return (const kestrin_kept*)(const void*)((const char*)array->first + index * array->stride);
}

/** How an outbox was found, or stands once it does nothing. */
typedef struct kestrin_outbox_state {
    size_t size;            /**< sizeof(kestrin_outbox_state) */
    size_t waiting;         /**< how many writes wait */
    size_t refused;         /**< how many the service has refused */
    kestrin_texts warnings; /**< what of the store was damaged, for people */
} kestrin_outbox_state;

/** What happened in an outbox. */
typedef int32_t kestrin_outbox_event_kind;
enum {
    KESTRIN_OUTBOX_SENT = 0,             /**< the service has it */
    KESTRIN_OUTBOX_SUPERSEDED = 1,       /**< a later write made it needless */
    KESTRIN_OUTBOX_DROPPED_AS_STALE = 2, /**< the service has something newer */
    KESTRIN_OUTBOX_REFUSED = 3,          /**< the service refuses it for good */
    KESTRIN_OUTBOX_FORGOTTEN = 4,        /**< a refused one had to go, because there are too many */
    KESTRIN_OUTBOX_EXPIRED = 5,          /**< it was too old */
    KESTRIN_OUTBOX_DROPPED = 6,          /**< the application dropped it */
    KESTRIN_OUTBOX_OVERFLOW = 7,         /**< it was not accepted, because the outbox is full */
    KESTRIN_OUTBOX_WAITS_FOR_BIND =
        8,                      /**< the profile's writes wait for kestrin_outbox_bind_is_new */
    KESTRIN_OUTBOX_DELAYED = 9, /**< the profile's writes wait for the service */
    KESTRIN_OUTBOX_STORE_FAILED = 10 /**< the store was damaged, or did not keep what was sent */
};

/** What happened to a write, or to the outbox; docs/outbox.md. */
typedef struct kestrin_outbox_event {
    size_t size;                    /**< sizeof(kestrin_outbox_event) */
    kestrin_outbox_event_kind kind; /**< what happened */
    const kestrin_kept* entry;      /**< of KESTRIN_OUTBOX_STORE_FAILED: says nothing */
    kestrin_text text;              /**< for people; no secrets */
    kestrin_optional_int64 by;      /**< KESTRIN_OUTBOX_SUPERSEDED: the number of the later write */
    int64_t delay_ms;               /**< KESTRIN_OUTBOX_DELAYED: how long it waits */
} kestrin_outbox_event;

/* ---- Results -------------------------------------------------------------------------------- */

/** How a request ended. */
typedef int32_t kestrin_outcome;
enum {
    KESTRIN_VALUE = 0, /**< the result has one of the other members */
    KESTRIN_ERROR = 1, /**< `error` says what went wrong */
    /** kestrin_request_cancel, or the end of what it needs (the household, the transport, the
     * outbox); `error` says which. */
    KESTRIN_CANCELLED = 2
};

/**
 * What came of a request. It belongs to whoever it was given to, and never changes; all that it
 * points to lives until it is released. Which member is set is said where the request is made.
 */
typedef struct kestrin_result {
    size_t size;                      /**< sizeof(kestrin_result) */
    kestrin_outcome outcome;          /**< value, error or cancelled */
    const kestrin_error* error;       /**< not NULL unless `outcome` is KESTRIN_VALUE */
    const kestrin_response* response; /**< NULL: another member is the value; so with the others */
    const kestrin_bind* bind;         /**< a bind */
    const kestrin_list* list;         /**< a list */
    const kestrin_outbox_state* outbox_state; /**< an outbox */
    kestrin_users users;                      /**< profiles */
    kestrin_binds binds;                      /**< binds */
    kestrin_kept_writes kept;                 /**< writes of an outbox */
    kestrin_text text;                        /**< a text */
    uint64_t number;                          /**< a number */
} kestrin_result;

/** Releases a result and all that it points to. Any thread. */
KESTRIN_C_EXPORT void kestrin_result_release(kestrin_result* result);

/* ---- Requests ------------------------------------------------------------------------------- */

typedef struct kestrin_request kestrin_request;   /**< something that was begun */
typedef struct kestrin_executor kestrin_executor; /**< where completions are called */
typedef struct kestrin_task kestrin_task;         /**< something that is to run once, elsewhere */

/** What is called when a request ends; see REQUESTS, THREADS. */
typedef struct kestrin_completion {
    size_t size;                                              /**< sizeof(kestrin_completion) */
    void* context;                                            /**< handed to each function */
    void (*completed)(void* context, kestrin_result* result); /**< not NULL */
    void (*release_context)(void* context);                   /**< may be NULL */
    kestrin_executor* executor;                               /**< not taken over; NULL: none */
} kestrin_completion;

/** See CANCELLING. A request that has ended may be cancelled, too; then nothing happens. */
KESTRIN_C_EXPORT void kestrin_request_cancel(kestrin_request* request);

/** Ends the handle; what it stands for goes on. Any thread, also inside the completion. */
KESTRIN_C_EXPORT void kestrin_request_release(kestrin_request* request);

/**
 * Runs a task that a hook was given, and ends it; each task is run or dropped exactly once. On the
 * calling thread.
 */
KESTRIN_C_EXPORT void kestrin_task_run(kestrin_task* task);

/**
 * Ends a task that will not run, for an executor or clock that was shut down. A completion of which
 * it would have been the call is not called; its context is released here.
 */
KESTRIN_C_EXPORT void kestrin_task_drop(kestrin_task* task);

/** Has tasks run somewhere: on the application's main thread, for example. */
typedef struct kestrin_executor_hooks {
    size_t size;   /**< sizeof(kestrin_executor_hooks) */
    void* context; /**< handed to each function */
    /** Has kestrin_task_run called with the task, now or later, once; tasks in any order. */
    void (*execute)(void* context, kestrin_task* task);
    void (*release_context)(void* context); /**< may be NULL */
} kestrin_executor_hooks;

/** An executor made of hooks. Completions that name it use it also after its release. */
KESTRIN_C_EXPORT kestrin_status kestrin_executor_create(const kestrin_executor_hooks* hooks,
                                                        kestrin_executor** executor);
/** Releases an executor. */
KESTRIN_C_EXPORT void kestrin_executor_release(kestrin_executor* executor);

/* ---- Configuration and binds: of the process, for all households --------------------------------
 */

/**
 * Sets the configuration (docs/configuration.md) from its JSON text. If it has problems the former
 * one stays, and kestrin_last_problem() has them, a line each.
 */
KESTRIN_C_EXPORT kestrin_status kestrin_configure(kestrin_text json);

/** Forgets the configuration; binds stay. */
KESTRIN_C_EXPORT kestrin_status kestrin_remove_configuration(void);

/** Stores a bind that the application has. The first one that is stored selects its profile. */
KESTRIN_C_EXPORT kestrin_status kestrin_store_bind(const kestrin_bind* bind);

/** Selects the profile whose bind plain operations use if they are given none. */
KESTRIN_C_EXPORT kestrin_status kestrin_select_profile(kestrin_text profile_id);

/** Forgets all binds that are held, also those in the bind store. */
KESTRIN_C_EXPORT kestrin_status kestrin_drop_binds(void);

/** All binds that are held (`binds`), and the selected profile (`text`; absent: none). */
KESTRIN_C_EXPORT kestrin_status kestrin_held_binds(kestrin_result** result);

typedef struct kestrin_loaded_binds kestrin_loaded_binds; /**< what a bind store gives back */

/** Where binds are kept between runs of the application: the platform's key store. */
typedef struct kestrin_bind_store {
    size_t size;   /**< sizeof(kestrin_bind_store) */
    void* context; /**< handed to each function */
    /** Called once, by kestrin_set_bind_store, to hand all binds over by the functions below. It
     * may block. `loaded` lives until it returns. */
    void (*load)(void* context, kestrin_loaded_binds* loaded);
    /** Called after every change, from any thread. States may arrive out of order: the highest
     * `revision` counts. The texts live until it returns; it must not block, and must not call this
     * library. */
    void (*save)(void* context, const kestrin_binds* binds, kestrin_text selected_profile_id,
                 uint64_t revision);
    void (*release_context)(void* context); /**< may be NULL */
} kestrin_bind_store;

/**
 * Binds are kept there from now on, and what it holds replaces what is held. NULL: in memory only,
 * as at the start.
 */
KESTRIN_C_EXPORT kestrin_status kestrin_set_bind_store(const kestrin_bind_store* store);

/** Hands over one bind, in the place of one of the same profile. One that is refused, also because
 * no request could carry it, is not there; the others are. */
KESTRIN_C_EXPORT kestrin_status kestrin_loaded_binds_add(kestrin_loaded_binds* loaded,
                                                         const kestrin_bind* bind);
/** Hands over which profile is selected. */
KESTRIN_C_EXPORT kestrin_status kestrin_loaded_binds_select(kestrin_loaded_binds* loaded,
                                                            kestrin_text profile_id);

/* ---- Transport ------------------------------------------------------------------------------ */

typedef struct kestrin_transfer kestrin_transfer; /**< a request that the platform sends */

/** What is to be sent. It lives until the transfer is finished. */
typedef struct kestrin_transfer_request {
    size_t size;                /**< sizeof(kestrin_transfer_request) */
    uint64_t id;                /**< names it for `cancel`; never used twice */
    kestrin_text method;        /**< e.g. "GET" */
    kestrin_text url;           /**< absolute */
    kestrin_headers headers;    /**< all of them but User-Agent and those of the framing */
    kestrin_text body;          /**< absent: the request has none */
    bool sends_user_agent;      /**< false: without a User-Agent header */
    int64_t connect_timeout_ms; /**< how long connecting may take */
    int64_t total_timeout_ms;   /**< how long everything may take */
    int32_t max_redirects;      /**< 0: none is followed, a 3xx is the reply */
    size_t max_body_length; /**< of the reply, decoded; a longer one may be cut off and failed */
    kestrin_text operation; /**< for logs */
    kestrin_text path_template; /**< for logs: what may be shown of the URL */
} kestrin_transfer_request;

/** A reply of any status. What it points to is copied. */
typedef struct kestrin_transfer_reply {
    size_t size;                /**< sizeof(kestrin_transfer_reply) */
    int32_t status;             /**< 100 to 999 */
    kestrin_headers headers;    /**< of the final reply */
    kestrin_text body;          /**< after content decoding */
    kestrin_text effective_url; /**< after redirects; may be absent */
} kestrin_transfer_reply;

/**
 * Sends the library's requests with the platform's means. Time limits and the verification of the
 * peer are the platform's to keep. Only requests that just read (GET, HEAD, OPTIONS, TRACE) may be
 * sent again by it. Redirects may be followed within the origin alone, or not at all.
 */
typedef struct kestrin_transport {
    size_t size;   /**< sizeof(kestrin_transport) */
    void* context; /**< handed to each function */
    /** Begins a transfer. Ends it, now or later, on any thread, by one call of
     * kestrin_transfer_finish or kestrin_transfer_fail; also if it was cancelled. */
    void (*send)(void* context, const kestrin_transfer_request* request,
                 kestrin_transfer* transfer);
    /** Nobody wants the outcome any more. The transfer may have ended. May be NULL. */
    void (*cancel)(void* context, uint64_t id);
    void (*release_context)(void* context); /**< may be NULL */
} kestrin_transport;

/**
 * Sends all requests made from now on with this. NULL: with the built-in one (libcurl); a library
 * without it (KESTRIN_TRANSPORT=none) then fails every request with KESTRIN_CANNOT_CONNECT. What
 * the former one has open ends with KESTRIN_CANCELLED, on this thread, unless requests still use
 * it.
 */
KESTRIN_C_EXPORT kestrin_status kestrin_set_transport(const kestrin_transport* transport);

/**
 * Ends a transfer with a reply, or with an error: a kestrin_transfer_error and what happened, for
 * people, without secrets (may be absent). The transfer's handle ends with it, also if the status
 * is not KESTRIN_OK: a reply that is refused (its status is not 100 to 999, say) fails the request
 * with KESTRIN_MALFORMED_REPLY. Calls completions on this thread.
 */
KESTRIN_C_EXPORT kestrin_status kestrin_transfer_finish(kestrin_transfer* transfer,
                                                        const kestrin_transfer_reply* reply);
/** The same with an error. */
KESTRIN_C_EXPORT kestrin_status kestrin_transfer_fail(kestrin_transfer* transfer,
                                                      kestrin_transfer_error error,
                                                      kestrin_text message);

/* ---- Operations ----------------------------------------------------------------------------- */

/**
 * What is to be done. Needed is what the table names; `brand_id` absent: the configured brand.
 *
 *   operation                          needs                        result
 *   KESTRIN_ANONYMOUS_BIND             (plain) profile_id, else     bind
 *                                      the household's parent
 *   KESTRIN_VALIDATE_PROFILE_NAME      user_name                    response
 *   KESTRIN_CREATE_PROFILE             user                         users, one
 *   KESTRIN_GET_PROFILES                                            users
 *   KESTRIN_EDIT_PROFILE               user, with profile_id        response
 *   KESTRIN_DELETE_PROFILE             profile_id                   response
 *   KESTRIN_GET_HISTORY, ..._FAVORITES, ..._WATCH_LIST              list
 *   KESTRIN_GET_VIDEO_HISTORY          video_id                     list
 *   KESTRIN_ADD_HISTORY_VIDEO          video_id, progress           response
 *   KESTRIN_ADD_WATCH_LIST_VIDEO,
 *   KESTRIN_DELETE_VIDEO_HISTORY,
 *   KESTRIN_DELETE_WATCH_LIST_VIDEO    video_id                     response
 *   KESTRIN_ADD_FAVORITE_SHOW,
 *   KESTRIN_DELETE_FAVORITE_SHOW       show_id                      response
 *   KESTRIN_ADD_FAVORITE_SHOWS         shows                        response
 *   KESTRIN_CLEAR_...                                               response
 *   KESTRIN_ADD_SEARCH_HISTORY         search                       response
 *   KESTRIN_DELETE_SEARCH_HISTORY                                   response
 */
typedef struct kestrin_call {
    size_t size;                       /**< sizeof(kestrin_call) */
    kestrin_operation operation;       /**< what is to be done */
    kestrin_text profile_id;           /**< see the table; absent: not needed */
    kestrin_text brand_id;             /**< a session has its own: kestrin_session_options */
    kestrin_text video_id;             /**< see the table */
    kestrin_text show_id;              /**< see the table */
    kestrin_text user_name;            /**< see the table */
    kestrin_text search;               /**< see the table */
    kestrin_optional_int64 progress;   /**< in seconds, 0 or more */
    kestrin_optional_bool is_complete; /**< absent: the service is not told */
    const kestrin_user* user;          /**< see the table */
    kestrin_entries shows;             /**< see the table */
} kestrin_call;

/**
 * Does a plain operation: one request, with the given bind, and nothing else.
 * bind     NULL: the held one, of the parent for the household's profiles, else of the selected
 *          profile. KESTRIN_ANONYMOUS_BIND and KESTRIN_DELETE_SEARCH_HISTORY take none: the latter
 *          always acts for the selected profile.
 * request  may be NULL; set before the completion is called
 */
KESTRIN_C_EXPORT kestrin_status kestrin_profile_start(const kestrin_bind* bind,
                                                      const kestrin_call* call,
                                                      const kestrin_completion* completion,
                                                      kestrin_request** request);

/* ---- Households and their sessions; docs/household.md -----------------------------------------
 */

/** The household whose profiles act. */
typedef struct kestrin_household kestrin_household;
/** Who acts: one profile of it. */
typedef struct kestrin_session kestrin_session;

/** Which requests are repeated, how often and when. Fill it by kestrin_retry_policy_init. */
typedef struct kestrin_retry_policy {
    size_t size;                      /**< sizeof(kestrin_retry_policy) */
    int32_t max_attempts;             /**< the first one included; 1 or less: once */
    int64_t first_delay_ms;           /**< the limit of the first wait */
    int64_t longest_delay_ms;         /**< the limit of any wait */
    int64_t deadline_ms;              /**< how long a call may take that repeats */
    kestrin_int32s unsent_errors;     /**< kestrin_transfer_error: after these any request */
    kestrin_texts idempotent_methods; /**< whose requests are repeated after the next two */
    kestrin_int32s errors;            /**< kestrin_transfer_error, for these methods */
    kestrin_int32s statuses;          /**< of replies, for these methods */
    kestrin_int32s refusals; /**< statuses after which a request of any method is repeated */
    double budget_share;     /**< what a request that succeeds adds to the budget for repeats */
    double budget_at_start;  /**< what there is before the first request */
    double budget_at_most;   /**< no more is saved than this */
} kestrin_retry_policy;

/**
 * Fills a policy with the defaults. Its arrays live as long as the process.
 * size  sizeof(kestrin_retry_policy)
 */
KESTRIN_C_EXPORT kestrin_status kestrin_retry_policy_init(kestrin_retry_policy* policy,
                                                          size_t size);

/** The platform's time and timers. Its functions must not call this library, except for
 * kestrin_task_drop. */
typedef struct kestrin_clock {
    size_t size;                         /**< sizeof(kestrin_clock) */
    void* context;                       /**< handed to each function */
    int64_t (*steady_ns)(void* context); /**< never goes back */
    int64_t (*wall_ms)(void* context);   /**< milliseconds since 1970; may jump */
    /** Arranges for the task to run, one time, after `delay_ns` (0 or more), on any thread, but not
     * inside this call; tasks run in the order in which they are due. `id` names the task for
     * `cancel` and is never used twice. False: that could not be done, and the task was not
     * touched. */
    bool (*after)(void* context, uint64_t id, int64_t delay_ns, kestrin_task* task);
    /** The task need not run any more; run it or drop it all the same, once. May be NULL. */
    void (*cancel)(void* context, uint64_t id);
    void (*release_context)(void* context); /**< may be NULL */
} kestrin_clock;

/** What a household does beside sending a request once. */
typedef int32_t kestrin_household_event_kind;
enum {
    KESTRIN_REPEAT = 0,         /**< the request is sent again after a while */
    KESTRIN_GIVEN_UP = 1,       /**< it is not repeated, though it might have been */
    KESTRIN_BIND_REQUESTED = 2, /**< a bind is asked for */
    KESTRIN_BIND_RENEWED = 3,   /**< the same, because the held one was refused */
    KESTRIN_SENT_ONCE_MORE = 4  /**< a refused request goes out under a newer bind */
};

/** What a log may know of repeats and binds. No token, no identifier. */
typedef struct kestrin_household_event {
    size_t size;                       /**< sizeof(kestrin_household_event) */
    kestrin_household_event_kind kind; /**< what happened */
    kestrin_operation operation;       /**< what is repeated, or waits */
    int32_t attempt;                   /**< its number; of KESTRIN_REPEAT the one that comes */
    int32_t max_attempts;              /**< how many there may be */
    int64_t delay_ms;                  /**< KESTRIN_REPEAT: until it begins */
    kestrin_text reason;               /**< e.g. "503" */
    kestrin_text text;                 /**< all of it in one line */
} kestrin_household_event;

/** Receives the events of a household, where they happen; an event lives until `event` returns. */
typedef struct kestrin_household_log {
    size_t size;   /**< sizeof(kestrin_household_log) */
    void* context; /**< handed to each function */
    void (*event)(void* context,
                  const kestrin_household_event* event); /**< called with each event */
    void (*release_context)(void* context);              /**< may be NULL */
} kestrin_household_log;

/** What an application makes of its household; each may be NULL. */
typedef struct kestrin_household_options {
    size_t size;                       /**< sizeof(kestrin_household_options) */
    const kestrin_retry_policy* retry; /**< NULL: the default */
    const kestrin_clock* clock; /**< NULL: the system's, with a thread while something waits */
    const kestrin_household_log* log; /**< NULL: none */
} kestrin_household_options;

/**
 * A household. Its binds are taken from and stored with those of the process.
 * options  NULL: the defaults
 */
KESTRIN_C_EXPORT kestrin_status kestrin_household_create(const kestrin_household_options* options,
                                                         kestrin_household** household);

/**
 * Ends the household and, with KESTRIN_CANCELLED, all its requests, on this thread. Without a clock
 * of the application's it waits for a timer's task that is running.
 */
KESTRIN_C_EXPORT void kestrin_household_release(kestrin_household* household);

/**
 * Connects to the configured hosts, so that later calls find a connection. Result: `number`, how
 * many have answered; never an error.
 */
KESTRIN_C_EXPORT kestrin_status kestrin_household_warm_up(kestrin_household* household,
                                                          const kestrin_completion* completion,
                                                          kestrin_request** request);

/** Who acts, and how. */
typedef struct kestrin_session_options {
    size_t size;             /**< sizeof(kestrin_session_options) */
    kestrin_text profile_id; /**< absent: the household's parent, as it is configured now */
    kestrin_text brand_id;   /**< absent: the configured one, at the time of each attempt */
    bool without_repeats;    /**< each request is sent once */
    kestrin_optional_int64 deadline_ms; /**< of a call; absent: that of the retry policy */
} kestrin_session_options;

/**
 * A session of a profile. Sends nothing. It may outlive its household; its calls are cancelled
 * then. options  NULL: the parent, with the defaults
 */
KESTRIN_C_EXPORT kestrin_status kestrin_household_session(kestrin_household* household,
                                                          const kestrin_session_options* options,
                                                          kestrin_session** session);
/** Releases a session; its requests go on. */
KESTRIN_C_EXPORT void kestrin_session_release(kestrin_session* session);

/**
 * Does an operation as the session's profile: obtains and renews its bind, and repeats as the retry
 * policy says. The call's `brand_id` must be absent.
 * request  may be NULL; set before the completion is called
 */
KESTRIN_C_EXPORT kestrin_status kestrin_session_start(kestrin_session* session,
                                                      const kestrin_call* call,
                                                      const kestrin_completion* completion,
                                                      kestrin_request** request);

/* ---- The outbox; docs/outbox.md ---------------------------------------------------------------
 */

/** Keeps writes until the service has taken them. */
typedef struct kestrin_outbox kestrin_outbox;

/** Fill it by kestrin_outbox_options_init. */
typedef struct kestrin_outbox_options {
    size_t size; /**< sizeof(kestrin_outbox_options) */
    /** Where writes are kept, a path; absent: in memory, as long as the outbox lives. A library
     * without SQLite (KESTRIN_OUTBOX_STORE=none) answers a path with KESTRIN_NOT_AVAILABLE. */
    kestrin_text file;
    size_t max_entries; /**< 1 or more */
    int64_t max_age_ms; /**< this, compare_after_ms and longest_request_ms: rounded up to seconds */
    size_t max_refused; /**< how many refused writes are kept */
    int64_t compare_after_ms;   /**< older ones are compared with what the service has */
    int64_t first_delay_ms;     /**< the first wait after a failure; it doubles */
    int64_t longest_delay_ms;   /**< the longest wait */
    int64_t removal_delay_ms;   /**< how long what was sent may stay stored */
    int64_t longest_request_ms; /**< how long a request may be on its way */
} kestrin_outbox_options;

/** Fills in the defaults. size: sizeof(kestrin_outbox_options) */
KESTRIN_C_EXPORT kestrin_status kestrin_outbox_options_init(kestrin_outbox_options* options,
                                                            size_t size);

/**
 * Opens an outbox that sends as the profiles of the household, and begins to send. After the
 * release of the household its writes wait for the next start.
 * options  NULL: the defaults
 */
KESTRIN_C_EXPORT kestrin_status kestrin_outbox_create(kestrin_household* household,
                                                      const kestrin_outbox_options* options,
                                                      kestrin_outbox** outbox);

/**
 * Ends the outbox once no reporter uses it: stores what was added before, which may wait for the
 * disk, and lets go of what is under way; its writes stay.
 */
KESTRIN_C_EXPORT void kestrin_outbox_release(kestrin_outbox* outbox);

/**
 * Keeps a write of a session: a call of one of the operations that change a list (KESTRIN_ADD_...,
 * KESTRIN_DELETE_..., KESTRIN_CLEAR_... of lists and searches), and ends once it is stored. Result:
 * `kept`, the one entry.
 */
KESTRIN_C_EXPORT kestrin_status kestrin_session_keep(kestrin_session* session,
                                                     kestrin_outbox* outbox,
                                                     const kestrin_call* call,
                                                     const kestrin_completion* completion,
                                                     kestrin_request** request);

/** Keeps a write of any profile. Result: `kept`, the one entry. */
KESTRIN_C_EXPORT kestrin_status kestrin_outbox_add(kestrin_outbox* outbox,
                                                   const kestrin_write* write,
                                                   const kestrin_completion* completion,
                                                   kestrin_request** request);

/** Ends when the store was opened. Result: `outbox_state`, what was found. */
KESTRIN_C_EXPORT kestrin_status kestrin_outbox_opening(kestrin_outbox* outbox,
                                                       const kestrin_completion* completion,
                                                       kestrin_request** request);

/** Ends once nothing is being sent or stored. Result: `outbox_state`. */
KESTRIN_C_EXPORT kestrin_status kestrin_outbox_settled(kestrin_outbox* outbox,
                                                       const kestrin_completion* completion,
                                                       kestrin_request** request);

/** Drops a write that waits or was refused. Result: `number`, 1 if there was one, else 0. */
KESTRIN_C_EXPORT kestrin_status kestrin_outbox_drop(kestrin_outbox* outbox, int64_t number,
                                                    const kestrin_completion* completion,
                                                    kestrin_request** request);

/** The writes that wait (`kept`), by their numbers. */
KESTRIN_C_EXPORT kestrin_status kestrin_outbox_entries(kestrin_outbox* outbox,
                                                       kestrin_result** result);
/** The writes that the service has refused (`kept`), the oldest first. */
KESTRIN_C_EXPORT kestrin_status kestrin_outbox_refused(kestrin_outbox* outbox,
                                                       kestrin_result** result);

/** Told of events, one at a time and in their order; an event lives until `event` returns. */
typedef struct kestrin_outbox_watcher {
    size_t size;   /**< sizeof(kestrin_outbox_watcher) */
    void* context; /**< handed to each function */
    void (*event)(void* context, const kestrin_outbox_event* event); /**< called with each event */
    /** Called once, when no event is running or will come: the outbox has ended or the request was
     * cancelled. May be NULL. */
    void (*release_context)(void* context);
    /** NULL: where events happen. The watch ends if the executor drops a task, or if there is no
     * memory for one. */
    kestrin_executor* executor;
} kestrin_outbox_watcher;

/** Watches an outbox until the request is cancelled, or the outbox ends. */
KESTRIN_C_EXPORT kestrin_status kestrin_outbox_watch(kestrin_outbox* outbox,
                                                     const kestrin_outbox_watcher* watcher,
                                                     kestrin_request** request);

/** Tries at once what waits for the service: to be called when the network is back. */
KESTRIN_C_EXPORT kestrin_status kestrin_outbox_network_is_back(kestrin_outbox* outbox);

/** Goes on with a profile's writes that wait for a bind: after signing in again. */
KESTRIN_C_EXPORT kestrin_status kestrin_outbox_bind_is_new(kestrin_outbox* outbox,
                                                           kestrin_text profile_id);

/* ---- The playback reporter --------------------------------------------------------------------
 */

/** Reports how far a video was watched. */
typedef struct kestrin_reporter kestrin_reporter;

/** What is being watched, by whom. */
typedef struct kestrin_reporter_options {
    size_t size;             /**< sizeof(kestrin_reporter_options) */
    kestrin_text profile_id; /**< who watches */
    kestrin_text brand_id;   /**< absent: none */
    kestrin_text video_id;   /**< what */
    int64_t interval_ms;     /**< between two writes at the least; 0: the default, 10 s */
    /** Told why a write was not taken; the error lives until it returns. May be NULL. */
    void (*failed)(void* context, const kestrin_error* error);
    void* context;                          /**< handed to each function */
    void (*release_context)(void* context); /**< may be NULL */
} kestrin_reporter_options;

/**
 * Reports how far a video was watched, in few writes. One for each time that somebody watches.
 * outbox  where the writes are kept; NULL: they are sent as the household's profile
 */
KESTRIN_C_EXPORT kestrin_status kestrin_reporter_create(kestrin_household* household,
                                                        kestrin_outbox* outbox,
                                                        const kestrin_reporter_options* options,
                                                        kestrin_reporter** reporter);

/**
 * Writes what is known and was not written, and ends. It may wait as kestrin_outbox_release does if
 * the outbox was released before, and as kestrin_household_release does if the household was.
 */
KESTRIN_C_EXPORT void kestrin_reporter_release(kestrin_reporter* reporter);

/** The player is at a position, in milliseconds; below 0: unknown, and nothing changes. */
KESTRIN_C_EXPORT kestrin_status kestrin_reporter_position(kestrin_reporter* reporter,
                                                          int64_t position_ms);
/** Somebody has moved the player; below 0: until a position is told, none is known. */
KESTRIN_C_EXPORT kestrin_status kestrin_reporter_moved(kestrin_reporter* reporter,
                                                       int64_t position_ms);
/** The video was paused: writes at once. */
KESTRIN_C_EXPORT kestrin_status kestrin_reporter_paused(kestrin_reporter* reporter);
/** The application goes to the background: writes at once. */
KESTRIN_C_EXPORT kestrin_status kestrin_reporter_in_background(kestrin_reporter* reporter);
/** It was watched to its end: writes that at once. */
KESTRIN_C_EXPORT kestrin_status kestrin_reporter_finished(kestrin_reporter* reporter);

#ifdef __cplusplus
}
#endif

#endif
