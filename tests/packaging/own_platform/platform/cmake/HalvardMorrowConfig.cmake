add_library(HalvardMorrow::HalvardMorrow INTERFACE IMPORTED)
target_include_directories(HalvardMorrow::HalvardMorrow INTERFACE ${CMAKE_CURRENT_LIST_DIR}/..)
