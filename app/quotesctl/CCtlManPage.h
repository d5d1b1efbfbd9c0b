#pragma once

#include <QString>

#include "CCtlSynopsis.h"

// quotesctl's manual page (roff), made from the table of global options and the command table:
// packaging/man/quotesctl.1 is this text, which a test checks.
class CCtlManPage {
public:
    static QString text();

private:
    static QString synopsis();
    static QString description();
    static QString options();
    static QString commands();
    static QString commandEntry(const CCtlCommand& command, const QString& joined);
    static QString trailer();
    // The synopsis of a command in the page's fonts.
    static QString synopsisOf(const CCtlCommand& command);
    static QString fonts(const CCtlSynopsis::Token& token);
    // Text escaped for roff: its minus signs and backslashes.
    static QString escaped(const QString& text);
    // The lines of --help as one sentence-cased paragraph.
    static QString paragraph(const QString& lines);
};
