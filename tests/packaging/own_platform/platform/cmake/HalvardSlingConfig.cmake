add_library(HalvardSling::HalvardSling INTERFACE IMPORTED)
target_include_directories(HalvardSling::HalvardSling INTERFACE ${CMAKE_CURRENT_LIST_DIR}/..)
target_link_libraries(HalvardSling::HalvardSling INTERFACE Kestrin::rxcpp)
