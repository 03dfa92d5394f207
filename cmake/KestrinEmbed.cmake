# Puts files of text into a program.
#
# kestrin_embed(<target> FOLDER <folder> HEADER <header> NAMESPACE <namespace> FUNCTION <function>
#               FILES <name>…)
# Compiles into the target a function that the header declares, `std::span<const EmbeddedFile>
# function()`: the files of the folder, each with its name, an entity tag and its content.
function(kestrin_embed target)
    cmake_parse_arguments(arg "" "FOLDER;HEADER;NAMESPACE;FUNCTION" "FILES" ${ARGN})
    set(result ${CMAKE_CURRENT_BINARY_DIR}/${arg_FUNCTION}.cpp)
    list(TRANSFORM arg_FILES PREPEND ${arg_FOLDER}/ OUTPUT_VARIABLE files)
    add_custom_command(
        OUTPUT ${result}
        COMMAND ${CMAKE_COMMAND} -DRESULT=${result} -DFOLDER=${arg_FOLDER} "-DFILES=${arg_FILES}"
                -DHEADER=${arg_HEADER} -DNAMESPACE=${arg_NAMESPACE} -DFUNCTION=${arg_FUNCTION} -P
                ${PROJECT_SOURCE_DIR}/cmake/embed.cmake
        DEPENDS ${files} ${PROJECT_SOURCE_DIR}/cmake/embed.cmake
        COMMENT "Embedding ${arg_FOLDER}"
        VERBATIM)
    target_sources(${target} PRIVATE ${result})
endfunction()
