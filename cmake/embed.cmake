# Writes the source that KestrinEmbed.cmake compiles. It is run as a script, with its variables set.
cmake_minimum_required(VERSION 3.25)

set(entries "")
foreach(name IN LISTS FILES)
    file(READ ${FOLDER}/${name} content)
    file(SHA256 ${FOLDER}/${name} digest)
    string(SUBSTRING ${digest} 0 32 tag)
    if(content MATCHES "\\)embedded\"")
        message(FATAL_ERROR "${name} contains what ends a raw string")
    endif()
    string(APPEND entries "    {\"${name}\", \"\\\"${tag}\\\"\", R\"embedded(${content})embedded\"},\n")
endforeach()

file(WRITE ${RESULT} "#include <array>

#include <${HEADER}>

namespace ${NAMESPACE} {

std::span<const EmbeddedFile> ${FUNCTION}() {
    static constexpr auto files = std::to_array<EmbeddedFile>({
${entries}    });
    return files;
}

}  // namespace ${NAMESPACE}
")
