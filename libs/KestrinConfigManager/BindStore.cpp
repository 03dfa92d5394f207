#include <KestrinConfigManager/BindStore.hpp>

namespace KestrinConfigManager {

BindStore::~BindStore() = default;

}  // namespace KestrinConfigManager
