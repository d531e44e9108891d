# built_in_migrations(SOURCE FILE...): makes a source of migrations, NNN_name.sql, for store/schema.h.
function(built_in_migrations source)
    set(rows "")
    foreach(file IN LISTS ARGN)
        get_filename_component(name ${file} NAME)
        string(REGEX MATCH "^0*([1-9][0-9]*)_" number ${name})
        set(number ${CMAKE_MATCH_1})
        file(READ ${file} sql)
        string(APPEND rows "    {${number}, \"${name}\", R\"sql(${sql})sql\"},\n")
    endforeach()
    set(table ${CMAKE_CURRENT_BINARY_DIR}/migrations.cpp)
    file(CONFIGURE OUTPUT ${table} @ONLY CONTENT
"#include \"store/schema.h\"

namespace store {

namespace {

constexpr Migration Migrations[] = {
${rows}};

}  // namespace

std::span<const Migration> migrations() {
    return Migrations;
}

}  // namespace store
")
    # Another text of a file is another source.
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${ARGN})
    set(${source} ${table} PARENT_SCOPE)
endfunction()
