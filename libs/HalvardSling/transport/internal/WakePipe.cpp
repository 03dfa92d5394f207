#include <cerrno>
#include <fcntl.h>
#include <system_error>
#include <unistd.h>

#include <HalvardSling/transport/internal/WakePipe.hpp>

namespace HalvardSling {

WakePipe::WakePipe() {
    if (::pipe(ends_.data()) != 0)
        throw std::system_error(errno, std::generic_category(), "no pipe could be opened");
    for (const int end : ends_) {
        ::fcntl(end, F_SETFD, FD_CLOEXEC);
        ::fcntl(end, F_SETFL, O_NONBLOCK);
    }
}

WakePipe::~WakePipe() {
    for (const int end : ends_)
        ::close(end);
}

void WakePipe::wake() const noexcept {
    const char something = 0;
    // A pipe that is full is readable anyway.
    [[maybe_unused]] const auto written = ::write(ends_.back(), &something, 1);
}

void WakePipe::clear() const noexcept {
    std::array<char, 64> something;  // NOLINT: nobody looks at it
    while (::read(ends_.front(), something.data(), something.size()) ==
           static_cast<ssize_t>(something.size())) {
    }
}

}  // namespace HalvardSling
