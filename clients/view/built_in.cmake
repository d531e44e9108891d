# built_in_files(SOURCES FILE...): makes sources of files as they stand, for view/built_in.h.
function(built_in_files sources)
    set(data "    .section .rodata\n")
    set(rows "")
    set(names "")
    set(number 0)
    foreach(file IN LISTS ARGN)
        get_filename_component(name ${file} NAME)
        get_filename_component(ending ${file} LAST_EXT)
        set(type.html "text/html; charset=utf-8")
        set(type.css "text/css; charset=utf-8")
        set(type.js "text/javascript; charset=utf-8")
        set(type.json "application/json")
        set(type.svg "image/svg+xml")
        if(NOT DEFINED type${ending})
            message(FATAL_ERROR "${file}: what type is that?")
        endif()
        file(SHA256 ${file} sum)
        string(SUBSTRING ${sum} 0 16 sum)
        string(APPEND data "    .global built_in_${number}\nbuilt_in_${number}:\n    .incbin \"${file}\"\n"
            "    .global built_in_${number}_end\nbuilt_in_${number}_end:\n    .byte 0\n")
        string(APPEND names "extern const char built_in_${number}[], built_in_${number}_end[];\n")
        string(APPEND rows "    {\"${name}\", \"${type${ending}}\", text_of(built_in_${number}, built_in_${number}_end), "
            "R\"(\"${sum}\")\"},\n")
        math(EXPR number "${number} + 1")
    endforeach()
    string(APPEND data "    .section .note.GNU-stack,\"\",%progbits\n")
    set(assembly ${CMAKE_CURRENT_BINARY_DIR}/built_in_data.S)
    set(table ${CMAKE_CURRENT_BINARY_DIR}/built_in_table.cpp)
    file(CONFIGURE OUTPUT ${assembly} CONTENT "${data}" @ONLY)
    file(CONFIGURE OUTPUT ${table} @ONLY CONTENT
"#include \"view/built_in.h\"

extern \"C\" {
${names}}

namespace view {

namespace {

std::string_view text_of(const char* begin, const char* end) {
    return {begin, static_cast<std::size_t>(end - begin)};
}

const BuiltIn Files[] = {
${rows}};

}  // namespace

std::span<const BuiltIn> built_in_files() {
    return Files;
}

const BuiltIn* find_built_in(std::string_view name) {
    for (const BuiltIn& file : Files) {
        if (file.name == (name.empty() ? \"index.html\" : name)) return &file;
    }
    return nullptr;
}

}  // namespace view
")
    # Another text of a file is another sum.
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${ARGN})
    set_source_files_properties(${assembly} PROPERTIES OBJECT_DEPENDS "${ARGN}")
    set(${sources} ${assembly} ${table} PARENT_SCOPE)
endfunction()
