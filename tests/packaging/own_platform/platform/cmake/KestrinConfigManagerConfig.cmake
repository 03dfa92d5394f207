add_library(KestrinConfigManager::KestrinConfigManager INTERFACE IMPORTED)
target_link_libraries(KestrinConfigManager::KestrinConfigManager
                      INTERFACE HalvardSling::HalvardSling)
