// libFuzzer target: quotesctl's command-line parser. The input is the argument list, one argument
// per line; parsing never reaches a database.

#include <QStringList>
#include <cstddef>
#include <cstdint>

#include "CQuotesCtl.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QString text = QString::fromUtf8(reinterpret_cast<const char*>(data), int(size));
    QStringList arguments = text.split(QLatin1Char('\n'));
    if (arguments.size() > 64)
        return 0;
    CQuotesCtl ctl;
    const int code = ctl.parse(arguments);
    if (code != CQuotesCtl::kParsed && code != CQuotesCtl::kOk && code != CQuotesCtl::kUsage)
        __builtin_trap();
    return 0;
}
