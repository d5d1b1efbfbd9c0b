#pragma once

#include <boost/shared_ptr.hpp>
#include <cstdio>

#include "CQuotesService.h"

// A data service of the benches on its own database; null (after saying why) when it cannot
// be opened.
inline boost::shared_ptr<CQuotesService> openBenchService(const CServiceOptions& options) {
    QString error;
    auto service = CQuotesService::open(options, &error);
    if (!service)
        std::fprintf(stderr, "bench: %s\n", error.toUtf8().constData());
    return service;
}
