#include <array>
#include <cerrno>
#include <fcntl.h>
#include <system_error>
#include <unistd.h>

#include <HalvardSling/transport/internal/WakePipe.hpp>

namespace HalvardSling::internal {

WakePipe::WakePipe() {
    std::array<int, 2> ends{};
    if (::pipe(ends.data()) != 0)
        throw std::system_error(errno, std::generic_category(), "no pipe could be opened");
    readEnd_ = KestrinInternal::FileDescriptor(ends.front());
    writeEnd_ = KestrinInternal::FileDescriptor(ends.back());
    for (const int end : ends) {
        ::fcntl(end, F_SETFD, FD_CLOEXEC);
        ::fcntl(end, F_SETFL, O_NONBLOCK);
    }
}

void WakePipe::wake() const noexcept {
    const char something = 0;
    // A pipe that is full is readable anyway.
    [[maybe_unused]] const auto written = ::write(writeEnd_.number(), &something, 1);
}

void WakePipe::clear() const noexcept {
    std::array<char, 64> something;  // NOLINT: nobody looks at it
    while (::read(readEnd_.number(), something.data(), something.size()) ==
           static_cast<ssize_t>(something.size())) {
    }
}

}  // namespace HalvardSling::internal
