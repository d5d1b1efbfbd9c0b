# Precompiled headers for the targets whose sources share heavy headers (Qt, Boost, gRPC,
# protobuf): each such header is then parsed once per target instead of once per source.
option(QUOTES_PCH "Precompile the heavy headers of the larger targets" ON)

set(QUOTES_PCH_CORE <QtCore> <boost/shared_ptr.hpp> <boost/make_shared.hpp> <functional> <map>
    <memory> <mutex> <set> <string> <vector>)
set(QUOTES_PCH_SQL ${QUOTES_PCH_CORE} <QtSql>)
set(QUOTES_PCH_WIDGETS ${QUOTES_PCH_CORE} <QtGui> <QtWidgets>)
set(QUOTES_PCH_GRPC ${QUOTES_PCH_CORE} <grpcpp/grpcpp.h> <google/protobuf/message.h>)
set(QUOTES_PCH_TESTS ${QUOTES_PCH_WIDGETS} <QtSql> <QtTest>)

# quotes_precompile(TARGET HEADERS...): the target compiles the headers once.
function(quotes_precompile target)
    if(QUOTES_PCH)
        target_precompile_headers(${target} PRIVATE ${ARGN})
    endif()
endfunction()

# quotes_reuse_precompiled(TARGET FROM): the target uses FROM's precompiled headers (their
# compile flags must be the same).
function(quotes_reuse_precompiled target from)
    if(QUOTES_PCH)
        target_precompile_headers(${target} REUSE_FROM ${from})
    endif()
endfunction()
