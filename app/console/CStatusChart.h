#pragma once

#include <qwt_plot.h>
#include <vector>

#include "Hlx/CProbeResult.h"

class QwtPlotCurve;

// The connect time of one address over a span (the last hour or day) in the dock 行情源状态:
// milliseconds against the time of day. Periods without a reachable probe leave a gap.
class CStatusChart : public QwtPlot {
    Q_OBJECT
public:
    explicit CStatusChart(QWidget* parent = nullptr);

    // Shows the samples of the address between sinceMs and untilMs under the title.
    void showSamples(const QString& title, const std::vector<Hlx::CProbeSample>& samples,
                     long long sinceMs, long long untilMs);
    // Nothing chosen: an empty chart.
    void clearSamples();
    // The points drawn (reachable samples only).
    int pointCount() const;

private:
    QwtPlotCurve* m_curve;
};
