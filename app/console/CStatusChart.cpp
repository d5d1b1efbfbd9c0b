#include "CStatusChart.h"

#include <qwt_date.h>
#include <qwt_date_scale_draw.h>
#include <qwt_date_scale_engine.h>
#include <qwt_plot_curve.h>
#include <qwt_plot_grid.h>
#include <qwt_symbol.h>
#include <QPen>
#include <QVector>

#include "model/CProbeVocabulary.h"

namespace {

const QColor kLine(0x20, 0x60, 0xb0);
const QColor kFailure(0xc0, 0x20, 0x20);

}  // namespace

CStatusChart::CStatusChart(QWidget* parent) : QwtPlot(parent), m_failures(new QwtPlotCurve) {
    setObjectName(QStringLiteral("statusChart"));
    setCanvasBackground(Qt::white);
    setAxisTitle(QwtPlot::yLeft, QStringLiteral("连接时间 (ms)"));
    setAxisScaleDraw(QwtPlot::xBottom, new QwtDateScaleDraw(Qt::LocalTime));
    setAxisScaleEngine(QwtPlot::xBottom, new QwtDateScaleEngine(Qt::LocalTime));
    auto* grid = new QwtPlotGrid;
    grid->setMajorPen(QPen(QColor(0xe0, 0xe0, 0xe0)));
    grid->attach(this);
    m_failures->setStyle(QwtPlotCurve::NoCurve);
    m_failures->setSymbol(
        new QwtSymbol(QwtSymbol::XCross, QBrush(kFailure), QPen(kFailure, 1.5), QSize(7, 7)));
    m_failures->attach(this);
    setMinimumHeight(160);
    clearSamples();
}

void CStatusChart::showSamples(const QString& title, const std::vector<Hlx::CProbeSample>& samples,
                               long long sinceMs, long long untilMs) {
    clearLines();
    QVector<QPointF> line;
    QVector<QPointF> failures;
    for (const Hlx::CProbeSample& sample : samples) {
        const double time = double(sample.timeMs);
        if (sample.state == CProbeVocabulary::kReachable && sample.connectUs > 0) {
            line.append(QPointF(time, sample.connectUs / 1000.0));
            continue;
        }
        // Down (not merely unprobed): the line stops here and the time is marked.
        addLine(line);
        line.clear();
        if (sample.state != CProbeVocabulary::kNotProbed)
            failures.append(QPointF(time, 0.0));
    }
    addLine(line);
    m_failures->setSamples(failures);
    setTitle(title);
    setAxisScale(QwtPlot::xBottom, double(sinceMs), double(untilMs));
    setAxisAutoScale(QwtPlot::yLeft);
    replot();
}

void CStatusChart::clearSamples() {
    clearLines();
    m_failures->setSamples(QVector<QPointF>());
    setTitle(QString());
    replot();
}

int CStatusChart::pointCount() const {
    int points = 0;
    for (const QwtPlotCurve* line : m_lines)
        points += int(line->dataSize());
    return points;
}

int CStatusChart::failureCount() const {
    return int(m_failures->dataSize());
}

void CStatusChart::clearLines() {
    for (QwtPlotCurve* line : m_lines) {
        line->detach();
        delete line;
    }
    m_lines.clear();
}

void CStatusChart::addLine(const QVector<QPointF>& points) {
    if (points.isEmpty())
        return;
    auto* line = new QwtPlotCurve;
    line->setPen(QPen(kLine, 1.5));
    line->setSymbol(new QwtSymbol(QwtSymbol::Ellipse, QBrush(kLine), QPen(Qt::NoPen), QSize(4, 4)));
    line->setSamples(points);
    line->attach(this);
    m_lines.push_back(line);
}
