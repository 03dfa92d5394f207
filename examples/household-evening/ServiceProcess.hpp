#pragma once

#include <string>
#include <sys/types.h>
#include <vector>

namespace HouseholdEvening {

/// The development service as a process of the evening's own, which can be taken away and brought
/// back: on the same port and with the same data.
class ServiceProcess {
  public:
    /// Starts it, and waits until it takes requests.
    /// @param command            the program and its arguments, those for the port and the
    ///                           configuration excepted
    /// @param configurationFile  where it writes the configuration for clients
    /// @throws std::runtime_error if it does not start
    ServiceProcess(std::vector<std::string> command, const std::string& configurationFile);
    ServiceProcess(const ServiceProcess&) = delete;
    ServiceProcess& operator=(const ServiceProcess&) = delete;
    /// Ends it, if it runs.
    ~ServiceProcess();

    /// Ends it without a warning, as a crash does.
    void kill();

    /// Starts it again.
    void restart();

    /// Ends it in good order.
    /// @throws std::runtime_error if it did not
    void stop();

    /// Its number.
    [[nodiscard]] pid_t id() const noexcept { return process_; }

  private:
    void start(const std::vector<std::string>& more);
    /// @return its exit status, as the system gives it
    int end(int signal) noexcept;

    std::vector<std::string> command_;
    std::string port_ = "0";
    pid_t process_ = -1;
};

}  // namespace HouseholdEvening
