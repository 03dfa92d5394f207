#pragma once

namespace KestrinConfigManager {

template <class Record>
concept Archivable = requires(const Record& record) { record.encode(); };

}  // namespace KestrinConfigManager
