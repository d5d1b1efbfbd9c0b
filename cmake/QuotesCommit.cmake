# Writes the commit of the source tree into OUTPUT at every build, touching the file only when the
# commit changed: the one source that changes per commit, so no other file's flags depend on it.
# A tree without git (a source tarball) says QUOTES_COMMIT from the environment, or "unknown".
set(commit "$ENV{QUOTES_COMMIT}")
if(commit STREQUAL "")
    execute_process(COMMAND git rev-parse --short=12 HEAD WORKING_DIRECTORY "${SOURCE_DIR}"
        OUTPUT_VARIABLE commit OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET RESULT_VARIABLE failed)
    if(failed OR commit STREQUAL "")
        set(commit unknown)
    endif()
endif()
file(CONFIGURE OUTPUT "${OUTPUT}" CONTENT "// Generated at build time by cmake/QuotesCommit.cmake.
#include \"Hlx/QuotesVersion.h\"

namespace Hlx {

const char* quotesCommit() {
    return \"${commit}\";
}

} // namespace Hlx
" @ONLY)
