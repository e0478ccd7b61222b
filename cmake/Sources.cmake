# morvane_sources(<variable> <glob>...): the files below the project's root that match. A glob even for a single
# name: when a file comes or goes, the next build configures itself again.
function(morvane_sources variable)
    list(TRANSFORM ARGN PREPEND ${PROJECT_SOURCE_DIR}/ OUTPUT_VARIABLE patterns)
    file(GLOB found CONFIGURE_DEPENDS ${patterns})
    set(${variable} ${found} PARENT_SCOPE)
endfunction()
