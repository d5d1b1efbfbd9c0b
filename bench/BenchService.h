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

// The same on a new database in the directory, with the service's defaults.
inline boost::shared_ptr<CQuotesService> openBenchService(const QString& dataDir) {
    CServiceOptions options;
    options.dataDir = dataDir;
    return openBenchService(options);
}
