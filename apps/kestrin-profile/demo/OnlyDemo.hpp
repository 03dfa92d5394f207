#pragma once

#include <filesystem>

namespace KestrinProfileCLI {

/// Keeps other demos off a household while this lives: one would delete what another has created,
/// taking it for leftovers. Demos are told apart by their configuration file, which names the
/// household.
class OnlyDemo {
  public:
    /// @throws CommandError where another demo plays with this configuration file
    explicit OnlyDemo(const std::filesystem::path& configurationFile);
    OnlyDemo(const OnlyDemo&) = delete;
    OnlyDemo(OnlyDemo&&) = delete;
    OnlyDemo& operator=(const OnlyDemo&) = delete;
    OnlyDemo& operator=(OnlyDemo&&) = delete;
    ~OnlyDemo();

  private:
    int file_;
};

}  // namespace KestrinProfileCLI
