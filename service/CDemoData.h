#pragma once

#include <QString>

class CQuotesService;

// The sample data of `quotes-console --demo`: sources on every panel in both sub-systems,
// futures sources of several brokers, Kx sources and a Level-2 token, stored through the
// service's own checked requests. Addresses lie in the documentation ranges only.
class CDemoData {
public:
    // The demo's data directory, beside the real one so that the two never mix.
    static QString defaultDirectory();
    // Makes the directory ready: with reset, removes it first. True with *fresh set when the
    // database has yet to be created (and so to be filled).
    static bool prepare(const QString& directory, bool reset, bool* fresh, QString* error);
    // Stores the sample data; false with a message when the service refused any of it.
    static bool fill(CQuotesService& service, QString* error);
};
