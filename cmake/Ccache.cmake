# Compiles through ccache when it is installed. The cache lives outside the checkout (ccache's
# own default directory), and paths are hashed relative to the source tree, so a fresh clone in
# another folder of the same machine reuses what an earlier build compiled.
find_program(QUOTES_CCACHE ccache)
option(QUOTES_USE_CCACHE "Compile through ccache when it is installed" ON)
if(QUOTES_CCACHE AND QUOTES_USE_CCACHE)
    set(QUOTES_CCACHE_LAUNCHER ${CMAKE_BINARY_DIR}/ccache-launcher.sh)
    configure_file(${CMAKE_CURRENT_LIST_DIR}/ccache-launcher.sh.in ${QUOTES_CCACHE_LAUNCHER} @ONLY
        FILE_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE
        WORLD_READ WORLD_EXECUTE)
    set(CMAKE_C_COMPILER_LAUNCHER ${QUOTES_CCACHE_LAUNCHER})
    set(CMAKE_CXX_COMPILER_LAUNCHER ${QUOTES_CCACHE_LAUNCHER})
endif()
