#pragma once

#include <QString>
#include <vector>

#include "Hlx/CProbeResult.h"
#include "utils/RKError.h"

class QMessageBox;
class QWidget;

namespace Hlx {

// 测试连接 of a source's row: probes where the source connects now, on a worker thread, and shows
// each address's state and error in a box over the widget. The answer is dropped when the
// widget has gone meanwhile.
class CConnectionTest {
public:
    // Starts the probe of the source; false when the data service behind the client centre
    // probes nothing (the box says so at once).
    static bool start(QWidget* widget, int sourceId);

    // The box's text for a probe's answer: one line per address.
    static QString describe(const utils::RKError& error, const std::vector<CProbeResult>& results);

    // The box with the result (deleted on close), found by tests by this name.
    static const char* const kBoxName;

private:
    static QMessageBox* show(QWidget* widget, const QString& text);
};

}  // namespace Hlx
