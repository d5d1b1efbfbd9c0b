# Compiles through ccache when it is installed. The cache lives outside the checkout (ccache's
# own default directory), and paths are hashed relative to the source tree, so a fresh clone in
# another folder of the same machine reuses what an earlier build compiled.
find_program(QUOTES_CCACHE ccache)
option(QUOTES_USE_CCACHE "Compile through ccache when it is installed" ON)
if(QUOTES_CCACHE AND QUOTES_USE_CCACHE)
    # ccache 4.7 takes its settings from the environment only, hence a small launcher script.
    # Precompiled headers need the sloppiness below; the hashed working directory would make
    # every clone's debug information different.
    set(QUOTES_CCACHE_LAUNCHER ${CMAKE_BINARY_DIR}/ccache-launcher.sh)
    file(WRITE ${QUOTES_CCACHE_LAUNCHER}
        "#!/bin/sh\n"
        "export CCACHE_BASEDIR='${CMAKE_SOURCE_DIR}'\n"
        "export CCACHE_NOHASHDIR=1\n"
        "export CCACHE_SLOPPINESS=pch_defines,time_macros,include_file_mtime,include_file_ctime\n"
        "exec '${QUOTES_CCACHE}' \"$@\"\n")
    file(CHMOD ${QUOTES_CCACHE_LAUNCHER} PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE
        GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
    set(CMAKE_C_COMPILER_LAUNCHER ${QUOTES_CCACHE_LAUNCHER})
    set(CMAKE_CXX_COMPILER_LAUNCHER ${QUOTES_CCACHE_LAUNCHER})
endif()
