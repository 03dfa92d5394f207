#include "support/FailingCalls.hpp"

#include <algorithm>
#include <atomic>
#include <string>

namespace TestSupport {

namespace {

constexpr int none = -1;
constexpr std::size_t unlimited = std::numeric_limits<std::size_t>::max();

/// Set while the one who makes the calls does nothing.
class Judge final : public CallJudge {
  public:
    int errorOf(SystemCall made, const CallTarget& target) override {
        if (call != static_cast<int>(made) || !isMeant(target)) return 0;
        const int number = ++count;
        return number < first || number > last ? 0 : error.load();
    }
    std::size_t taken(const CallTarget& target, std::size_t size) override {
        return mostBytes < size && isMeant(target) ? mostBytes.load() : size;
    }
    /// No power is cut here, so no test waits for a disk.
    bool hasSynced(const CallTarget& /*target*/) override { return true; }

    std::atomic<int> call{none};
    std::atomic<int> error{0};
    std::atomic<int> first{1};
    std::atomic<int> last{1};
    std::atomic<int> count{0};
    std::atomic<std::size_t> mostBytes{unlimited};
    std::string folder;

  private:
    [[nodiscard]] bool isMeant(const CallTarget& target) const {
        return folder.empty() || target.path().starts_with(folder);
    }
};

Judge& judge() {
    static Judge made;
    return made;
}

[[gnu::constructor]] void begin() {
    setCallJudge(&judge());
}

}  // namespace

FailingCalls::FailingCalls(const CallFault& fault, const std::filesystem::path& folder)
    : first_(fault.first) {
    Judge& one = judge();
    one.folder = folder.string();
    one.error = fault.error;
    one.first = fault.first;
    one.last = fault.last;
    one.count = 0;
    one.call = static_cast<int>(fault.call);
}

FailingCalls::~FailingCalls() {
    end();
}

void FailingCalls::end() noexcept {
    judge().call = none;
}

int FailingCalls::count() const noexcept {
    return judge().count;
}

ShortWrites::ShortWrites(std::size_t mostBytes, const std::filesystem::path& folder) {
    Judge& one = judge();
    one.folder = folder.string();
    one.mostBytes = mostBytes;
}

ShortWrites::~ShortWrites() {
    judge().mostBytes = unlimited;
}

}  // namespace TestSupport
