// What Native.java declares. The texts and records of the arguments are bytes that Wire.java wrote.

#include <cstdint>
#include <jni.h>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <utility>

#include "Events.hpp"
#include "Records.hpp"

namespace KestrinJava {

namespace {

// ---- Of JNI -------------------------------------------------------------------------------------

/// The bytes of an array; none if there is no array.
std::string bytesOf(JNIEnv* env, jbyteArray array) {
    if (array == nullptr) return {};
    const jsize length = env->GetArrayLength(array);
    std::string bytes(static_cast<std::size_t>(length), '\0');
    env->GetByteArrayRegion(array, 0, length, reinterpret_cast<jbyte*>(bytes.data()));
    return bytes;
}

/// An array of bytes, or null and an OutOfMemoryError of Java's.
jbyteArray arrayOf(JNIEnv* env, std::string_view bytes) {
    const auto length = static_cast<jsize>(bytes.size());
    jbyteArray const array = env->NewByteArray(length);
    if (array != nullptr)
        env->SetByteArrayRegion(array, 0, length, reinterpret_cast<const jbyte*>(bytes.data()));
    return array;
}

/// A text as an argument of the interface for C; absent if there is no array.
class Text {
  public:
    Text(JNIEnv* env, jbyteArray array)
        : isPresent_(array != nullptr), bytes_(bytesOf(env, array)) {}

    [[nodiscard]] kestrin_text text() const noexcept {
        if (!isPresent_) return {};
        return {bytes_.data(), bytes_.size()};
    }

  private:
    bool isPresent_;
    std::string bytes_;
};

template <class Handle>
Handle* handleOf(jlong number) noexcept {
    // Java keeps it for us. NOLINTNEXTLINE(performance-no-int-to-ptr)
    return reinterpret_cast<Handle*>(static_cast<std::intptr_t>(number));
}

/// Puts a new handle into the first place of an array.
void give(JNIEnv* env, jlongArray place, const void* handle) {
    const auto number = static_cast<jlong>(reinterpret_cast<std::intptr_t>(handle));
    env->SetLongArrayRegion(place, 0, 1, &number);
}

/// Runs the body of a function that returns a status. No exception enters Java.
template <class Body>
jint statusOf(const Body& body) noexcept {
    try {
        return body();
    } catch (const std::bad_alloc&) {
        return KESTRIN_OUT_OF_MEMORY;
    } catch (...) {
        return KESTRIN_FAILED;
    }
}

/// Runs the body of a function that returns bytes: null if it fails.
template <class Body>
jbyteArray bytesFrom(const Body& body) noexcept {
    try {
        return body();
    } catch (...) {
        return nullptr;
    }
}

// ---- Contexts and hooks
// ---------------------------------------------------------------------------

Context& contextOf(void* context) noexcept {
    return *static_cast<Context*>(context);
}

void release(void* context) noexcept {
    Events::instance().release(static_cast<Context*>(context));
}

template <class Record>
void tell(void* context, EventKind kind, const Record& record) noexcept {
    // What could not be told is, with the release of the context.
    Events::instance().add(contextOf(context), kind,
                           [&](Writer& writer) { write(writer, record); });
}

/// A context for the library, which takes it over whatever it returns.
void* contextFor(jlong id) {
    auto context = std::make_unique<Context>();
    context->id = id;
    return context.release();
}

/// Hooks that are nothing but their size, a context and its release.
template <class Hooks>
Hooks hooksFor(jlong id) {
    Hooks hooks{};
    hooks.size = sizeof hooks;
    hooks.context = contextFor(id);
    hooks.release_context = &release;
    return hooks;
}

kestrin_completion completionFor(jlong id) {
    auto completion = hooksFor<kestrin_completion>(id);
    completion.completed = [](void* context, kestrin_result* result) {
        tell(context, EventKind::completed, *result);
        kestrin_result_release(result);
    };
    return completion;
}

/// Begins a request, whose handle goes into an array.
template <class Begin>
kestrin_status begin(JNIEnv* env, jlong context, jlongArray place, const Begin& beginning) {
    const auto completion = completionFor(context);
    kestrin_request* request = nullptr;
    const kestrin_status status = beginning(&completion, &request);
    give(env, place, request);
    return status;
}

// ---- Everything ---------------------------------------------------------------------------------

jbyteArray version(JNIEnv* env, jclass) {
    return bytesFrom([&] { return arrayOf(env, kestrin_version()); });
}

jbyteArray lastProblem(JNIEnv* env, jclass) {
    return bytesFrom([&] { return arrayOf(env, kestrin_last_problem()); });
}

jbyteArray nextEvents(JNIEnv* env, jclass) {
    return bytesFrom([&]() -> jbyteArray {
        auto& events = Events::instance();
        jbyteArray const array = arrayOf(env, events.next());
        if (array != nullptr) events.forget();
        return array;
    });
}

jbyteArray operationName(JNIEnv* env, jclass, jint operation) {
    return bytesFrom([&] { return arrayOf(env, kestrin_operation_name(operation)); });
}

// ---- Configuration, binds, transport
// ----------------------------------------------------------------

jint configure(JNIEnv* env, jclass, jbyteArray json) {
    return statusOf([&] { return kestrin_configure(Text(env, json).text()); });
}

jint removeConfiguration(JNIEnv*, jclass) {
    return statusOf([] { return kestrin_remove_configuration(); });
}

jint storeBind(JNIEnv* env, jclass, jbyteArray bytes) {
    return statusOf([&] {
        const std::string written = bytesOf(env, bytes);
        Reader reader(written);
        const auto bind = readBind(reader);
        return kestrin_store_bind(&bind);
    });
}

jint selectProfile(JNIEnv* env, jclass, jbyteArray profileID) {
    return statusOf([&] { return kestrin_select_profile(Text(env, profileID).text()); });
}

jint dropBinds(JNIEnv*, jclass) {
    return statusOf([] { return kestrin_drop_binds(); });
}

/// What a function of the interface gives as a result; null if it fails.
template <class Give>
jbyteArray resultOf(JNIEnv* env, const Give& giving) noexcept {
    return bytesFrom([&]() -> jbyteArray {
        kestrin_result* result = nullptr;
        if (giving(&result) != KESTRIN_OK) return nullptr;
        const std::unique_ptr<kestrin_result, decltype(&kestrin_result_release)> owned(
            result, &kestrin_result_release);
        Writer writer;
        write(writer, *result);
        return arrayOf(env, writer.bytes());
    });
}

jbyteArray heldBinds(JNIEnv* env, jclass) {
    return resultOf(env, [](kestrin_result** result) { return kestrin_held_binds(result); });
}

/// Hands over what Java's store had when it was asked; without memory, as much as there is for.
void load(void* context, kestrin_loaded_binds* loaded) noexcept {
    static_cast<void>(statusOf([&] {
        Reader reader(contextOf(context).loadedBinds);
        const Binds binds = readBinds(reader);
        const auto array = binds.array();
        for (std::size_t index = 0; index < array.count; ++index)
            static_cast<void>(kestrin_loaded_binds_add(loaded, array.first + index));
        const kestrin_text selected = reader.text();
        return selected.data != nullptr ? kestrin_loaded_binds_select(loaded, selected)
                                        : kestrin_status{KESTRIN_OK};
    }));
}

void save(void* context, const kestrin_binds* binds, kestrin_text selectedProfileID,
          std::uint64_t revision) noexcept {
    Events::instance().add(contextOf(context), EventKind::bindsToSave, [&](Writer& writer) {
        write(writer, *binds);
        writer.text(selectedProfileID);
        writer.number(revision);
    });
}

jint setBindStore(JNIEnv* env, jclass, jlong context, jbyteArray loaded) {
    return statusOf([&] {
        if (context == 0) return kestrin_set_bind_store(nullptr);
        std::string binds = bytesOf(env, loaded);
        auto store = hooksFor<kestrin_bind_store>(context);
        contextOf(store.context).loadedBinds = std::move(binds);
        store.load = &load;
        store.save = &save;
        return kestrin_set_bind_store(&store);
    });
}

void send(void* context, const kestrin_transfer_request* request,
          kestrin_transfer* transfer) noexcept {
    auto& known = contextOf(context);
    const bool isTold = Events::instance().add(known, EventKind::send, [&](Writer& writer) {
        writer.number(request->id);
        writer.number(static_cast<std::int64_t>(reinterpret_cast<std::intptr_t>(transfer)));
        write(writer, *request);
    });
    if (!isTold) kestrin_transfer_fail(transfer, KESTRIN_TRANSFER_OUT_OF_MEMORY, {});
}

jint setTransport(JNIEnv*, jclass, jlong context) {
    return statusOf([&] {
        if (context == 0) return kestrin_set_transport(nullptr);
        auto transport = hooksFor<kestrin_transport>(context);
        transport.send = &send;
        transport.cancel = [](void* of, std::uint64_t id) {
            Events::instance().add(contextOf(of), EventKind::cancel,
                                   [&](Writer& writer) { writer.number(id); });
        };
        return kestrin_set_transport(&transport);
    });
}

jint finishTransfer(JNIEnv* env, jclass, jlong transfer, jbyteArray bytes) {
    auto* const ended = handleOf<kestrin_transfer>(transfer);
    return statusOf([&] {
        try {
            const Reply reply(bytesOf(env, bytes));
            return kestrin_transfer_finish(ended, &reply.structure());
        } catch (const std::bad_alloc&) {
            return kestrin_transfer_fail(ended, KESTRIN_TRANSFER_OUT_OF_MEMORY, {});
        }
    });
}

jint failTransfer(JNIEnv* env, jclass, jlong transfer, jint error, jbyteArray message) {
    auto* const ended = handleOf<kestrin_transfer>(transfer);
    return statusOf([&] {
        try {
            return kestrin_transfer_fail(ended, error, Text(env, message).text());
        } catch (const std::bad_alloc&) {
            return kestrin_transfer_fail(ended, error, {});
        }
    });
}

// ---- Requests -----------------------------------------------------------------------------------

jint startPlain(JNIEnv* env, jclass, jbyteArray bindBytes, jbyteArray bytes, jlong context,
                jlongArray request) {
    return statusOf([&] {
        const Call call(bytesOf(env, bytes));
        const std::string writtenBind = bytesOf(env, bindBytes);
        kestrin_bind bind{};
        if (bindBytes != nullptr) {
            Reader reader(writtenBind);
            bind = readBind(reader);
        }
        return begin(env, context, request, [&](const auto* completion, auto** begun) {
            return kestrin_profile_start(bindBytes != nullptr ? &bind : nullptr, &call.structure(),
                                         completion, begun);
        });
    });
}

jint startSession(JNIEnv* env, jclass, jlong session, jbyteArray bytes, jlong context,
                  jlongArray request) {
    return statusOf([&] {
        const Call call(bytesOf(env, bytes));
        return begin(env, context, request, [&](const auto* completion, auto** begun) {
            return kestrin_session_start(handleOf<kestrin_session>(session), &call.structure(),
                                         completion, begun);
        });
    });
}

jint keep(JNIEnv* env, jclass, jlong session, jlong outbox, jbyteArray bytes, jlong context,
          jlongArray request) {
    return statusOf([&] {
        const Call call(bytesOf(env, bytes));
        return begin(env, context, request, [&](const auto* completion, auto** begun) {
            return kestrin_session_keep(handleOf<kestrin_session>(session),
                                        handleOf<kestrin_outbox>(outbox), &call.structure(),
                                        completion, begun);
        });
    });
}

void endRequest(JNIEnv*, jclass, jlong number, jboolean cancels) {
    auto* const request = handleOf<kestrin_request>(number);
    if (cancels == JNI_TRUE) kestrin_request_cancel(request);
    kestrin_request_release(request);
}

// ---- Households and sessions
// ----------------------------------------------------------------------

jbyteArray defaultRetryPolicy(JNIEnv* env, jclass) {
    return bytesFrom([&]() -> jbyteArray {
        kestrin_retry_policy policy{};
        if (kestrin_retry_policy_init(&policy, sizeof policy) != KESTRIN_OK) return nullptr;
        Writer writer;
        write(writer, policy);
        return arrayOf(env, writer.bytes());
    });
}

jint createHousehold(JNIEnv* env, jclass, jbyteArray policyBytes, jlong logContext,
                     jlongArray place) {
    return statusOf([&] {
        const Policy policy(bytesOf(env, policyBytes));
        kestrin_household_options options{};
        options.size = sizeof options;
        options.retry = &policy.structure();
        kestrin_household_log log{};
        if (logContext != 0) {
            log = hooksFor<kestrin_household_log>(logContext);
            log.event = [](void* context, const kestrin_household_event* event) {
                tell(context, EventKind::householdEvent, *event);
            };
            options.log = &log;
        }
        kestrin_household* household = nullptr;
        const auto status = kestrin_household_create(&options, &household);
        give(env, place, household);
        return status;
    });
}

void releaseHousehold(JNIEnv*, jclass, jlong household) {
    kestrin_household_release(handleOf<kestrin_household>(household));
}

jint warmUp(JNIEnv* env, jclass, jlong household, jlong context, jlongArray request) {
    return statusOf([&] {
        return begin(env, context, request, [&](const auto* completion, auto** begun) {
            return kestrin_household_warm_up(handleOf<kestrin_household>(household), completion,
                                             begun);
        });
    });
}

jint createSession(JNIEnv* env, jclass, jlong household, jbyteArray bytes, jlongArray place) {
    return statusOf([&] {
        const std::string written = bytesOf(env, bytes);
        const auto options = readSessionOptions(written);
        kestrin_session* session = nullptr;
        const auto status =
            kestrin_household_session(handleOf<kestrin_household>(household), &options, &session);
        give(env, place, session);
        return status;
    });
}

void releaseSession(JNIEnv*, jclass, jlong session) {
    kestrin_session_release(handleOf<kestrin_session>(session));
}

// ---- The outbox ---------------------------------------------------------------------------------

jbyteArray defaultOutboxOptions(JNIEnv* env, jclass) {
    return bytesFrom([&]() -> jbyteArray {
        kestrin_outbox_options options{};
        if (kestrin_outbox_options_init(&options, sizeof options) != KESTRIN_OK) return nullptr;
        Writer writer;
        write(writer, options);
        return arrayOf(env, writer.bytes());
    });
}

jint createOutbox(JNIEnv* env, jclass, jlong household, jbyteArray bytes, jlongArray place) {
    return statusOf([&] {
        const std::string written = bytesOf(env, bytes);
        const auto options = readOutboxOptions(written);
        kestrin_outbox* outbox = nullptr;
        const auto status =
            kestrin_outbox_create(handleOf<kestrin_household>(household), &options, &outbox);
        give(env, place, outbox);
        return status;
    });
}

void releaseOutbox(JNIEnv*, jclass, jlong outbox) {
    kestrin_outbox_release(handleOf<kestrin_outbox>(outbox));
}

jint addWrite(JNIEnv* env, jclass, jlong outbox, jbyteArray bytes, jlong context,
              jlongArray request) {
    return statusOf([&] {
        const Write change(bytesOf(env, bytes));
        return begin(env, context, request, [&](const auto* completion, auto** begun) {
            return kestrin_outbox_add(handleOf<kestrin_outbox>(outbox), &change.structure(),
                                      completion, begun);
        });
    });
}

jint opening(JNIEnv* env, jclass, jlong outbox, jlong context, jlongArray request) {
    return statusOf([&] {
        return begin(env, context, request, [&](const auto* completion, auto** begun) {
            return kestrin_outbox_opening(handleOf<kestrin_outbox>(outbox), completion, begun);
        });
    });
}

jint settled(JNIEnv* env, jclass, jlong outbox, jlong context, jlongArray request) {
    return statusOf([&] {
        return begin(env, context, request, [&](const auto* completion, auto** begun) {
            return kestrin_outbox_settled(handleOf<kestrin_outbox>(outbox), completion, begun);
        });
    });
}

jint dropWrite(JNIEnv* env, jclass, jlong outbox, jlong number, jlong context, jlongArray request) {
    return statusOf([&] {
        return begin(env, context, request, [&](const auto* completion, auto** begun) {
            return kestrin_outbox_drop(handleOf<kestrin_outbox>(outbox), number, completion, begun);
        });
    });
}

jbyteArray entries(JNIEnv* env, jclass, jlong outbox) {
    return resultOf(env, [&](kestrin_result** result) {
        return kestrin_outbox_entries(handleOf<kestrin_outbox>(outbox), result);
    });
}

jbyteArray refusedEntries(JNIEnv* env, jclass, jlong outbox) {
    return resultOf(env, [&](kestrin_result** result) {
        return kestrin_outbox_refused(handleOf<kestrin_outbox>(outbox), result);
    });
}

jint watch(JNIEnv* env, jclass, jlong outbox, jlong context, jlongArray place) {
    return statusOf([&] {
        auto watcher = hooksFor<kestrin_outbox_watcher>(context);
        watcher.event = [](void* of, const kestrin_outbox_event* event) {
            tell(of, EventKind::outboxEvent, *event);
        };
        kestrin_request* request = nullptr;
        const auto status =
            kestrin_outbox_watch(handleOf<kestrin_outbox>(outbox), &watcher, &request);
        give(env, place, request);
        return status;
    });
}

jint networkIsBack(JNIEnv*, jclass, jlong outbox) {
    return statusOf(
        [&] { return kestrin_outbox_network_is_back(handleOf<kestrin_outbox>(outbox)); });
}

jint bindIsNew(JNIEnv* env, jclass, jlong outbox, jbyteArray profileID) {
    return statusOf([&] {
        return kestrin_outbox_bind_is_new(handleOf<kestrin_outbox>(outbox),
                                          Text(env, profileID).text());
    });
}

// ---- The playback reporter
// --------------------------------------------------------------------------

jint createReporter(JNIEnv* env, jclass, jlong household, jlong outbox, jbyteArray bytes,
                    jlong context, jlongArray place) {
    return statusOf([&] {
        const std::string written = bytesOf(env, bytes);
        auto options = readReporterOptions(written);
        options.context = contextFor(context);
        options.release_context = &release;
        options.failed = [](void* of, const kestrin_error* error) {
            tell(of, EventKind::reporterFailed, *error);
        };
        kestrin_reporter* reporter = nullptr;
        const auto status =
            kestrin_reporter_create(handleOf<kestrin_household>(household),
                                    handleOf<kestrin_outbox>(outbox), &options, &reporter);
        give(env, place, reporter);
        return status;
    });
}

void releaseReporter(JNIEnv*, jclass, jlong reporter) {
    kestrin_reporter_release(handleOf<kestrin_reporter>(reporter));
}

jint position(JNIEnv*, jclass, jlong reporter, jlong milliseconds) {
    return statusOf([&] {
        return kestrin_reporter_position(handleOf<kestrin_reporter>(reporter), milliseconds);
    });
}

jint moved(JNIEnv*, jclass, jlong reporter, jlong milliseconds) {
    return statusOf(
        [&] { return kestrin_reporter_moved(handleOf<kestrin_reporter>(reporter), milliseconds); });
}

jint paused(JNIEnv*, jclass, jlong reporter) {
    return statusOf([&] { return kestrin_reporter_paused(handleOf<kestrin_reporter>(reporter)); });
}

jint inBackground(JNIEnv*, jclass, jlong reporter) {
    return statusOf(
        [&] { return kestrin_reporter_in_background(handleOf<kestrin_reporter>(reporter)); });
}

jint finished(JNIEnv*, jclass, jlong reporter) {
    return statusOf(
        [&] { return kestrin_reporter_finished(handleOf<kestrin_reporter>(reporter)); });
}

// ---- The table
// ------------------------------------------------------------------------------------

// JNI's signature of a function's type.
template <class Type>
inline constexpr const char* signature = nullptr;
template <>
inline constexpr const char* signature<void> = "V";
template <>
inline constexpr const char* signature<jint> = "I";
template <>
inline constexpr const char* signature<jlong> = "J";
template <>
inline constexpr const char* signature<jboolean> = "Z";
template <>
inline constexpr const char* signature<jbyteArray> = "[B";
template <>
inline constexpr const char* signature<jlongArray> = "[J";

template <class Result, class... Arguments>
bool add(JNIEnv* env, jclass type, const char* name,
         Result (*function)(JNIEnv*, jclass, Arguments...)) {
    std::string text = "(";
    ((text += signature<Arguments>), ...);
    text += ')';
    text += signature<Result>;
    const JNINativeMethod method{const_cast<char*>(name), text.data(),
                                 reinterpret_cast<void*>(function)};
    return env->RegisterNatives(type, &method, 1) == JNI_OK;
}

bool addAll(JNIEnv* env, jclass type) {
    return add(env, type, "version", &version) && add(env, type, "lastProblem", &lastProblem) &&
           add(env, type, "nextEvents", &nextEvents) &&
           add(env, type, "operationName", &operationName) &&
           add(env, type, "configure", &configure) &&
           add(env, type, "removeConfiguration", &removeConfiguration) &&
           add(env, type, "storeBind", &storeBind) &&
           add(env, type, "selectProfile", &selectProfile) &&
           add(env, type, "dropBinds", &dropBinds) && add(env, type, "heldBinds", &heldBinds) &&
           add(env, type, "setBindStore", &setBindStore) &&
           add(env, type, "setTransport", &setTransport) &&
           add(env, type, "finishTransfer", &finishTransfer) &&
           add(env, type, "failTransfer", &failTransfer) &&
           add(env, type, "startPlain", &startPlain) &&
           add(env, type, "startSession", &startSession) && add(env, type, "keep", &keep) &&
           add(env, type, "endRequest", &endRequest) &&
           add(env, type, "defaultRetryPolicy", &defaultRetryPolicy) &&
           add(env, type, "createHousehold", &createHousehold) &&
           add(env, type, "releaseHousehold", &releaseHousehold) &&
           add(env, type, "warmUp", &warmUp) && add(env, type, "createSession", &createSession) &&
           add(env, type, "releaseSession", &releaseSession) &&
           add(env, type, "defaultOutboxOptions", &defaultOutboxOptions) &&
           add(env, type, "createOutbox", &createOutbox) &&
           add(env, type, "releaseOutbox", &releaseOutbox) &&
           add(env, type, "addWrite", &addWrite) && add(env, type, "opening", &opening) &&
           add(env, type, "settled", &settled) && add(env, type, "dropWrite", &dropWrite) &&
           add(env, type, "entries", &entries) &&
           add(env, type, "refusedEntries", &refusedEntries) && add(env, type, "watch", &watch) &&
           add(env, type, "networkIsBack", &networkIsBack) &&
           add(env, type, "bindIsNew", &bindIsNew) &&
           add(env, type, "createReporter", &createReporter) &&
           add(env, type, "releaseReporter", &releaseReporter) &&
           add(env, type, "position", &position) && add(env, type, "moved", &moved) &&
           add(env, type, "paused", &paused) && add(env, type, "inBackground", &inBackground) &&
           add(env, type, "finished", &finished);
}

}  // namespace

}  // namespace KestrinJava

extern "C" JNIEXPORT jint JNICALL JNI_OnLoad(JavaVM* machine, void*) {
    void* env = nullptr;
    if (machine->GetEnv(&env, JNI_VERSION_1_6) != JNI_OK) return JNI_ERR;
    auto* const jni = static_cast<JNIEnv*>(env);
    try {
        jclass const type = jni->FindClass("kestrin/profile/Native");
        return type != nullptr && KestrinJava::addAll(jni, type) ? JNI_VERSION_1_6 : JNI_ERR;
    } catch (...) {
        return JNI_ERR;
    }
}
