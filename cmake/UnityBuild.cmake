# Most of a build's time goes into reading headers. Where no released program comes of it, the compiler gets several
# sources of a target as one: the checked and the sanitized tree, and in every tree the tests and the benchmark. The
# product's own sources are compiled one by one in the release tree, which finds a missing #include.
set(CMAKE_UNITY_BUILD_BATCH_SIZE 8)
if(MORVANE_CHECKED OR MORVANE_SANITIZE)
    set(CMAKE_UNITY_BUILD ON)
endif()
# A fixture of an unnamed namespace, seen from the file that includes its source, looks like one of a header.
set(MORVANE_UNITY_OPTIONS $<$<COMPILE_LANG_AND_ID:CXX,GNU>:-Wno-subobject-linkage>)
if(CMAKE_UNITY_BUILD)
    add_compile_options(${MORVANE_UNITY_OPTIONS})
endif()

# morvane_unity(<target>): several of its sources are compiled as one, also in the release tree.
function(morvane_unity target)
    set_target_properties(${target} PROPERTIES UNITY_BUILD ON)
    target_compile_options(${target} PRIVATE ${MORVANE_UNITY_OPTIONS})
endfunction()
