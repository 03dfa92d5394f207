#include <cstdio>
#include <cstdlib>
#include <deque>
#include <mutex>
#include <string_view>
#include <unordered_map>

#include <KestrinC/internal/border/Handles.hpp>

// The one file that is compiled in two ways.

namespace KestrinC::internal {

#if defined(KESTRIN_C_CHECKED)

namespace {

/// The handles that are in use, and those that were released last, whose memory nobody else gets
/// meanwhile.
class Registry {
  public:
    void add(const void* handle, const char* name) {
        const std::scoped_lock lock(mutex_);
        known_[handle] = {name, true};
    }

    /// What is wrong with a handle; null: nothing.
    /// @param staysInUse  false: it is in use no more
    [[nodiscard]] const char* problemOf(const void* handle, std::string_view name,
                                        bool staysInUse) {
        if (handle == nullptr) return "is NULL";
        const std::scoped_lock lock(mutex_);
        const auto found = known_.find(handle);
        if (found == known_.end() || found->second.name != name)
            return "is no handle of this kind, or was released long ago";
        if (!found->second.isInUse) return "was released already";
        found->second.isInUse = staysInUse;
        return nullptr;
    }

    /// Keeps the memory of a handle that is in use no more.
    void keep(void* handle) noexcept {
        const std::scoped_lock lock(mutex_);
        try {
            released_.push_back(handle);
        } catch (...) {  // It is not kept then.
            forget(handle);
            return;
        }
        if (released_.size() <= kept) return;
        forget(released_.front());
        released_.pop_front();
    }

    static Registry& instance() {
        static Registry& only = *new Registry;  // threads may use it while the process ends
        return only;
    }

  private:
    struct Known {
        std::string_view name;
        bool isInUse = false;
    };

    static constexpr std::size_t kept = 10'000;

    void forget(void* handle) noexcept {
        known_.erase(handle);
        ::operator delete(handle);
    }

    std::mutex mutex_;
    std::unordered_map<const void*, Known> known_;
    std::deque<void*> released_;
};

void verify(const void* handle, const char* name, const char* function, bool staysInUse) noexcept {
    const char* const problem = Registry::instance().problemOf(handle, name, staysInUse);
    if (problem == nullptr) return;
    static_cast<void>(std::fprintf(stderr, "%s: %s %s\n", function, name, problem));
    std::abort();
}

}  // namespace

void noteMade(const void* handle, const char* name) {
    Registry::instance().add(handle, name);
}

void verifyInUse(const void* handle, const char* name, const char* function) noexcept {
    verify(handle, name, function, true);
}

void noteReleased(const void* handle, const char* name, const char* function) noexcept {
    verify(handle, name, function, false);
}

void retire(void* handle) noexcept {
    Registry::instance().keep(handle);
}

#else

void noteMade(const void* /*handle*/, const char* /*name*/) {}

void verifyInUse(const void* /*handle*/, const char* /*name*/, const char* /*function*/) noexcept {}

void noteReleased(const void* /*handle*/, const char* /*name*/, const char* /*function*/) noexcept {
}

void retire(void* handle) noexcept {
    ::operator delete(handle);
}

#endif

}  // namespace KestrinC::internal
