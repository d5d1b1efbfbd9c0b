#pragma once

#include <QString>

#include "CServiceOptions.h"

// A production database starts without brokers; the tests whose sources name the sample brokers
// (TestIds.h, RecordBuilders.h) ask for them when their database is created, here.
namespace SampleData {

inline CServiceOptions with(CServiceOptions options) {
    options.sampleData = true;
    return options;
}

// A new SQLite database in dataDir, with the sample brokers.
inline CServiceOptions inDirectory(const QString& dataDir) {
    CServiceOptions options;
    options.dataDir = dataDir;
    return with(options);
}

}  // namespace SampleData
