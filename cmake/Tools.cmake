# Each folder of tools/ is a console program of its name; tools/common is shared by them. All of them, and
# bench, enter at wmain: what people type reaches them as Windows has it, in UTF-16.

function(morvane_add_console_program name)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES;LIBRARIES")
    add_executable(${name} ${arg_SOURCES})
    target_link_options(${name} PRIVATE -municode)
    morvane_precompile(${name})
    target_link_libraries(${name} PRIVATE ${arg_LIBRARIES})
endfunction()

# Tools use the portable and the Windows modules, never the router's own.
morvane_sources(common_sources tools/common/*.cpp)
add_library(morvane_toolcommon STATIC ${common_sources})
target_link_libraries(morvane_toolcommon PUBLIC morvane_flags morvane_generated morvane_packet morvane_win32 morvane_system)
morvane_precompile(morvane_toolcommon)

morvane_sources(tool_folders tools/*)
foreach(folder ${tool_folders})
    get_filename_component(tool ${folder} NAME)
    morvane_sources(tool_sources tools/${tool}/*.cpp tools/${tool}/*.rc)
    if(tool_sources AND NOT tool STREQUAL "common")
        morvane_add_console_program(${tool} SOURCES ${tool_sources} LIBRARIES morvane_toolcommon)
    endif()
endforeach()
