#pragma once

#include <filesystem>

#include <internal/FileDescriptor.hpp>

namespace KestrinProfileServer {

/// The place of a database that nobody keeps: a folder of its own for temporary files, which only
/// its owner reads, and which goes at the end. It is a file because readers of a file in SQLite's
/// write-ahead mode never wait for the writer; a database in memory has no such mode, and the
/// service would behave otherwise than with a file that is kept.
class TemporaryDatabase {
  public:
    /// Also removes what killed processes of the same user left behind; throws StartError if there
    /// is no place.
    TemporaryDatabase();
    ~TemporaryDatabase();
    TemporaryDatabase(const TemporaryDatabase&) = delete;
    TemporaryDatabase& operator=(const TemporaryDatabase&) = delete;

    [[nodiscard]] std::filesystem::path file() const { return folder_ / "profiles.sqlite"; }

  private:
    std::filesystem::path folder_;
    /// Locked as long as the folder is in use.
    KestrinInternal::FileDescriptor lock_;
};

}  // namespace KestrinProfileServer
