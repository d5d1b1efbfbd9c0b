#pragma once

#include <qwt_plot.h>
#include <vector>

#include "Hlx/CProbeResult.h"

class QwtPlotCurve;
class QwtText;

// The connect time of one address over a span (the last hour or day) in the dock 行情源状态:
// milliseconds against the time of day. A probe that found the address down breaks the line and
// is marked in red on the time axis.
class CStatusChart : public QwtPlot {
    Q_OBJECT
public:
    explicit CStatusChart(QWidget* parent = nullptr);

    // Shows the samples of the address between sinceMs and untilMs under the title.
    void showSamples(const QString& title, const std::vector<Hlx::CProbeSample>& samples,
                     long long sinceMs, long long untilMs);
    // Nothing chosen: an empty chart.
    void clearSamples();
    // The points drawn (reachable samples only), the lines they form, and the failures marked.
    int pointCount() const;
    int lineCount() const { return int(m_lines.size()); }
    int failureCount() const;

private:
    // The address shown, bold; or a hint when there is none, grey.
    static QwtText titled(const QString& text, bool address);
    void showAxes(bool shown);
    void clearLines();
    void addLine(const QVector<QPointF>& points);

    std::vector<QwtPlotCurve*> m_lines;
    QwtPlotCurve* m_failures;
};
