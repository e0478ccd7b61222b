# The kits that tools, tests and the benchmark share, and the tools: each folder of tools/ is a console program of its
# name. All of them, and bench, enter at wmain: what people type reaches them as Windows has it, in UTF-16.

# morvane_add_console_program(name SOURCES source... LIBRARIES library...)
function(morvane_add_console_program name)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES;LIBRARIES")
    add_executable(${name} ${arg_SOURCES})
    target_link_options(${name} PRIVATE -municode)
    morvane_precompile(${name})
    target_link_libraries(${name} PRIVATE ${arg_LIBRARIES})
endfunction()

# The simulated instrument behind a kernel driver.
add_subdirectory(${PROJECT_SOURCE_DIR}/tests/instrument testdriver)

# Kits of the tools, the tests and the benchmark; of the product they use the wrappers of Windows and the wire format.
# The instrument's USB endpoint speaks to the test driver's remote control.
morvane_module(console USES win32)
morvane_module(client USES win32)
morvane_module(instrument USES console testdriver packet win32)
set(MORVANE_KIT_LIBRARIES morvane_client morvane_instrument morvane_console)

# RouterLog has its portable half and what asks Windows in folders of their own, which its tests link too.
include(RouterLog)
morvane_sources(routerlog_windows_sources tools/RouterLog/pc/*.cpp)
add_library(morvane_routerlog STATIC ${MORVANE_ROUTERLOG_SOURCES} ${routerlog_windows_sources})
target_link_libraries(morvane_routerlog PUBLIC morvane_console morvane_usb version)
morvane_precompile(morvane_routerlog)

morvane_sources(tool_folders tools/*)
foreach(folder ${tool_folders})
    get_filename_component(tool ${folder} NAME)
    morvane_sources(tool_sources tools/${tool}/*.cpp tools/${tool}/*.rc)
    if(NOT tool_sources)
        continue()
    endif()
    set(tool_libraries ${MORVANE_KIT_LIBRARIES})
    if(tool STREQUAL "RouterLog")
        set(tool_libraries morvane_routerlog)
    endif()
    morvane_add_console_program(${tool} SOURCES ${tool_sources} LIBRARIES ${tool_libraries})
    set_source_files_properties(tools/${tool}/${tool}.rc PROPERTIES OBJECT_DEPENDS "${MORVANE_VERSION_PARTS}")
    morvane_release(${tool})
endforeach()
add_dependencies(InstrumentBus MorvaneTestInstrument)
