#include <algorithm>
#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <fcntl.h>
#include <limits>
#include <new>
#include <set>
#include <string_view>
#include <sys/stat.h>
#include <system_error>
#include <thread>
#include <unistd.h>
#include <utility>
#include <variant>
#include <vector>

#include <HalvardSling/json/JSONDictionary.hpp>
#include <KestrinConfigManager/FileBindStore.hpp>
#include <internal/FileDescriptor.hpp>
#include <internal/Guarded.hpp>
#include <internal/OwnProcess.hpp>

namespace KestrinConfigManager {

namespace {

using HalvardSling::JSONDictionary;
using KestrinInternal::FileDescriptor;
using KestrinInternal::uninterrupted;

constexpr std::int64_t formatVersion = 1;
constexpr std::size_t largestFile = std::size_t{16} << 20;
constexpr mode_t modeOfOthers = S_IRWXG | S_IRWXO;
constexpr mode_t writingOfOthers = S_IWGRP | S_IWOTH;

/// An open file; not open, with `errno` set, if that fails.
FileDescriptor opened(const std::filesystem::path& path, int flags, mode_t mode = 0) {
    return FileDescriptor(
        uninterrupted([&] { return ::open(path.c_str(), flags | O_CLOEXEC, mode); }));
}

/// Whether a file has no name any more.
bool isRemoved(const FileDescriptor& file) {
    struct stat status{};
    return ::fstat(file.number(), &status) == 0 && status.st_nlink == 0;
}

/// Waits until a file's content is on the disk.
/// @return false, with `errno` set, if that fails
bool sync(const FileDescriptor& file) {
    return uninterrupted([&] { return ::fsync(file.number()); }) == 0;
}

/// What was being done when the system reported an error, and the error.
std::string systemFailure(std::string_view action) {
    const int number = errno;
    return std::string(action) + ": " + std::generic_category().message(number);
}

/// What there is to say if memory is lacking; short enough to need none.
constexpr const char* noMemory = "out of memory";

/// What `say` says.
template <class Say>
std::optional<std::string> saidBy(const Say& say) noexcept {
    try {
        return say();
    } catch (const std::bad_alloc&) {
        return noMemory;
    }
}

std::filesystem::path directoryOf(const std::filesystem::path& file) {
    return file.has_parent_path() ? file.parent_path() : std::filesystem::path(".");
}

// The file's content.

std::string contentOf(const HeldBinds& held) {
    std::vector<JSONDictionary> binds;
    binds.reserve(held.binds.size());
    for (const AnonymousBind& bind : held.binds)
        binds.push_back(bind.encode());

    JSONDictionary content;
    content.setInteger("version", formatVersion);
    // The largest one that can be read back. Only a damaged file can bring it so far.
    constexpr std::uint64_t most = std::numeric_limits<std::int64_t>::max();
    content.setInteger("revision", static_cast<std::int64_t>(std::min(held.revision, most)));
    if (held.selectedProfileID) content.setText("selectedProfileID", *held.selectedProfileID);
    content.setDictionaries("binds", binds);
    return content.toJSON();
}

using Decoded = std::variant<HeldBinds, std::string>;

/// The binds of a file; absent if one is damaged or two are of the same profile.
std::optional<std::vector<AnonymousBind>> bindsIn(const JSONDictionary& content) {
    const auto list = content.dictionaries("binds");
    if (!list) return std::nullopt;
    std::vector<AnonymousBind> binds;
    std::set<std::string> profiles;
    for (const JSONDictionary& each : *list) {
        auto bind = AnonymousBind::fromEncoded(each);
        if (!bind || !profiles.insert(bind->profileID).second) return std::nullopt;
        binds.push_back(*std::move(bind));
    }
    return binds;
}

/// What a file's content says, or why it says nothing. The reason holds none of the content.
Decoded decoded(std::string_view text) {
    const auto parsed = JSONDictionary::parse(text);
    if (const auto* const failure = std::get_if<HalvardSling::JSONFailure>(&parsed))
        return "is damaged: " + failure->text();
    const auto& content = std::get<JSONDictionary>(parsed);
    if (content.integer("version") != formatVersion) return "is of another version";

    const auto revision = content.integer("revision");
    auto binds = bindsIn(content);
    const auto selected = content.text("selectedProfileID");
    const bool selectionIsDamaged = !selected && content.kind("selectedProfileID");
    if (!revision || *revision < 0 || !binds || selectionIsDamaged)
        return "is damaged: it is not what was written";

    HeldBinds held;
    held.binds = *std::move(binds);
    held.revision = static_cast<std::uint64_t>(*revision);
    if (selected) held.selectedProfileID = std::string(*selected);
    return held;
}

// Reading.

BindStore::Loaded nothing(std::string reason) {
    return {{}, std::move(reason)};
}

/// Leaves the file to its owner alone.
/// @return what others could do with it until now; absent if nothing
std::optional<std::string> closeToOthers(const FileDescriptor& file, mode_t mode) {
    if ((mode & modeOfOthers) == 0) return std::nullopt;
    std::string text = "could be used by others than its owner";
    if (uninterrupted([&] { return ::fchmod(file.number(), mode & S_IRWXU); }) != 0)
        return systemFailure(text + ", and that cannot be changed");
    return text + " until now";
}

BindStore::Loaded loadedFrom(const FileDescriptor& file) {
    struct stat status{};
    if (::fstat(file.number(), &status) != 0) return nothing(systemFailure("cannot be read"));
    if (!S_ISREG(status.st_mode)) return nothing("is not a regular file");
    if (status.st_uid != ::geteuid()) return nothing("belongs to another user, so it is not used");
    // Its mode stays, so that it is not trusted the next time either.
    if ((status.st_mode & writingOfOthers) != 0)
        return nothing("can be changed by others than its owner, so it is not used");
    auto exposure = closeToOthers(file, status.st_mode);

    const auto text = file.readAll(largestFile);
    if (!text) return nothing(systemFailure("cannot be read"));
    auto content = decoded(*text);
    if (auto* const reason = std::get_if<std::string>(&content)) return nothing(std::move(*reason));

    return {std::get<HeldBinds>(std::move(content)), std::move(exposure)};
}

BindStore::Loaded loadedFrom(const std::filesystem::path& path) {
    errno = 0;
    const FileDescriptor file = opened(path, O_RDONLY | O_NOFOLLOW | O_NONBLOCK);
    if (!file.isOpen() && errno == ENOENT) return {};
    BindStore::Loaded found = file.isOpen() ? loadedFrom(file)
                              : errno == ELOOP
                                  ? nothing("is a symbolic link, which is not followed")
                                  : nothing(systemFailure("cannot be read"));
    if (found.warning) found.warning = "the bind file \"" + path.string() + "\" " + *found.warning;
    return found;
}

// Writing.

constexpr std::string_view newSuffix = ".new";

/// How the names of the files begin that are still to be renamed.
std::string newPrefix(const std::filesystem::path& file) {
    return '.' + file.filename().string() + '.';
}

std::filesystem::path newName(const std::filesystem::path& file) {
    static std::atomic<unsigned> last{0};
    return directoryOf(file) / (newPrefix(file) + std::to_string(::getpid()) + "-" +
                                std::to_string(++last) + std::string(newSuffix));
}

/// A file that is still to be renamed; removed if that does not come to pass.
class NewFile {
  public:
    NewFile(std::filesystem::path path, FileDescriptor file)
        : path_(std::move(path)), file_(std::move(file)) {}
    NewFile(NewFile&&) noexcept = default;
    NewFile(const NewFile&) = delete;
    NewFile& operator=(const NewFile&) = delete;
    NewFile& operator=(NewFile&&) = delete;
    ~NewFile() {
        if (file_.isOpen() && !isRenamed_) ::unlink(path_.c_str());
    }

    [[nodiscard]] const FileDescriptor& file() const { return file_; }

    /// Puts it in the place of another.
    /// @return false, with `errno` set, if that fails
    bool rename(const std::filesystem::path& target) {
        isRenamed_ = uninterrupted([&] { return ::rename(path_.c_str(), target.c_str()); }) == 0;
        return isRenamed_;
    }

  private:
    std::filesystem::path path_;
    FileDescriptor file_;
    bool isRenamed_ = false;
};

/// Whether a file that was just created is ours to write. Somebody who looks for leftovers may have
/// been quicker than the lock; a file system without locks has nobody who is.
bool isOurs(const FileDescriptor& created) {
    return (created.lock() || errno != EWOULDBLOCK) && !isRemoved(created);
}

/// Creates a file under a name that nothing had. It is locked as long as it is written, by which
/// another process knows that it is not left over.
std::variant<NewFile, std::string> createdBeside(const std::filesystem::path& file) {
    constexpr int attempts = 100;
    for (int attempt = 0; attempt < attempts; ++attempt) {
        auto path = newName(file);
        FileDescriptor created =
            opened(path, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, S_IRUSR | S_IWUSR);
        if (!created.isOpen() && errno != EEXIST) return systemFailure("cannot create a file");
        if (created.isOpen() && isOurs(created))
            return NewFile{std::move(path), std::move(created)};
    }
    return "cannot create a file: every name is taken";
}

/// Removes what processes that have ended left half-written: files that nobody has locked.
void removeLeftovers(const std::filesystem::path& file) {
    const std::string prefix = newPrefix(file);
    std::error_code ignored;
    for (std::filesystem::directory_iterator entry(directoryOf(file), ignored), end; entry != end;
         entry.increment(ignored)) {
        const std::string name = entry->path().filename().string();
        if (!name.starts_with(prefix) || !name.ends_with(newSuffix)) continue;
        const FileDescriptor leftover = opened(entry->path(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK);
        if (leftover.isOpen() && leftover.lock()) ::unlink(entry->path().c_str());
    }
}

/// Makes a rename in the directory last. Some file systems cannot sync a directory and need not.
bool syncDirectory(const std::filesystem::path& directory) {
    const FileDescriptor file = opened(directory, O_RDONLY | O_DIRECTORY);
    return file.isOpen() && (sync(file) || errno == EINVAL);
}

std::optional<std::string> replace(const std::filesystem::path& file, std::string_view content) {
    auto created = createdBeside(file);
    if (auto* const failure = std::get_if<std::string>(&created)) return std::move(*failure);
    auto& fresh = std::get<NewFile>(created);

    if (!fresh.file().writeAll(content) || !sync(fresh.file()))
        return systemFailure("cannot write");
    if (!fresh.rename(file)) return systemFailure("cannot replace it");
    if (!syncDirectory(directoryOf(file))) return systemFailure("cannot sync its directory");
    return std::nullopt;
}

}  // namespace

/// The state that waits to be written, and the thread that writes it.
class [[gnu::visibility("hidden")]] FileBindStore::Core {
  public:
    explicit Core(std::filesystem::path file) : file_(std::move(file)) {}
    Core(const Core&) = delete;
    Core(Core&&) = delete;
    Core& operator=(const Core&) = delete;
    Core& operator=(Core&&) = delete;
    /// Not to be called where `isForked`.
    ~Core();

    [[nodiscard]] const std::filesystem::path& file() const { return file_; }
    [[nodiscard]] bool isForked() const noexcept { return process_.isForked(); }

    void save(HeldBinds held);
    [[nodiscard]] std::optional<std::string> flush();

  private:
    struct Shared {
        std::optional<HeldBinds> waiting;
        std::uint64_t newest = 0;
        bool isWriting = false;
        bool isEnding = false;
        std::optional<std::string> failure;
        std::thread thread;
    };

    void work();
    [[nodiscard]] std::optional<std::string> write(const HeldBinds& held);
    [[nodiscard]] std::string notSaved(std::string_view reason) const;

    const std::filesystem::path file_;
    KestrinInternal::OwnProcess process_;  // the one of the first save
    KestrinInternal::Guarded<Shared> shared_;
    std::condition_variable changed_;
    bool removedLeftovers_ = false;  // of the thread that writes
};

FileBindStore::Core::~Core() {
    std::thread thread;
    {
        const auto shared = shared_.lock();
        shared->isEnding = true;
        thread = std::move(shared->thread);
    }
    changed_.notify_all();
    if (thread.joinable()) thread.join();
}

void FileBindStore::Core::save(HeldBinds held) {
    if (isForked()) return;  // flush() says so
    process_.claim();
    {
        const auto shared = shared_.lock();
        if (held.revision < shared->newest) return;
        shared->newest = held.revision;
        shared->waiting = std::move(held);
        try {
            if (!shared->thread.joinable()) shared->thread = std::thread(&Core::work, this);
        } catch (const std::exception& error) {
            shared->waiting.reset();
            shared->failure = saidBy([&] {
                return std::string("cannot start the thread that writes: ") + error.what();
            });
        }
    }
    changed_.notify_all();
}

std::optional<std::string> FileBindStore::Core::flush() {
    if (!process_.isClaimed()) return std::nullopt;  // nothing was saved
    if (isForked())
        return notSaved(
            "the process was forked from one that had saved binds, and has no thread to write with:"
            " make a store after the fork, or replace the process (exec)");
    auto shared = shared_.lock();
    shared.wait(changed_, [&] { return !shared->waiting && !shared->isWriting; });
    return shared->failure;
}

void FileBindStore::Core::work() {
    while (true) {
        HeldBinds held;
        {
            auto shared = shared_.lock();
            shared.wait(changed_, [&] { return shared->waiting || shared->isEnding; });
            auto& waiting = shared->waiting;
            if (!waiting) return;
            std::swap(held, *waiting);
            waiting.reset();
            shared->isWriting = true;
        }
        auto failure = saidBy([&] { return write(held); });
        {
            const auto shared = shared_.lock();
            shared->isWriting = false;
            shared->failure = std::move(failure);
        }
        changed_.notify_all();
    }
}

std::optional<std::string> FileBindStore::Core::write(const HeldBinds& held) {
    if (!std::exchange(removedLeftovers_, true)) removeLeftovers(file_);
    auto failure = replace(file_, contentOf(held));
    if (failure) failure = notSaved(*failure);
    return failure;
}

std::string FileBindStore::Core::notSaved(std::string_view reason) const {
    return "the bind file \"" + file_.string() + "\" was not saved: " + std::string(reason);
}

FileBindStore::FileBindStore(std::filesystem::path file)
    : core_(std::make_unique<Core>(std::move(file))) {}

FileBindStore::~FileBindStore() {
    // What another process's thread waits with can neither be waited for nor destroyed.
    if (core_->isForked()) static_cast<void>(core_.release());
}

BindStore::Loaded FileBindStore::load() {
    try {
        static_cast<void>(core_->flush());
        return loadedFrom(core_->file());
    } catch (const std::bad_alloc&) {
        return nothing(noMemory);
    }
}

void FileBindStore::save(HeldBinds held) {
    core_->save(std::move(held));
}

std::optional<std::string> FileBindStore::flush() {
    return core_->flush();
}

}  // namespace KestrinConfigManager
