#include "CStatusChart.h"

#include <qwt_date.h>
#include <qwt_date_scale_draw.h>
#include <qwt_date_scale_engine.h>
#include <qwt_plot_curve.h>
#include <qwt_plot_grid.h>
#include <qwt_symbol.h>
#include <qwt_text.h>
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
    // Times of day: the span is an hour or a day, the date is not worth repeating on every tick.
    auto* times = new QwtDateScaleDraw(Qt::LocalTime);
    times->setDateFormat(QwtDate::Second, QStringLiteral("hh:mm:ss"));
    times->setDateFormat(QwtDate::Minute, QStringLiteral("hh:mm"));
    times->setDateFormat(QwtDate::Hour, QStringLiteral("hh:mm"));
    times->setDateFormat(QwtDate::Day, QStringLiteral("MM-dd"));
    setAxisScaleDraw(QwtPlot::xBottom, times);
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
    showAxes(true);
    setTitle(titled(title, true));
    setAxisScale(QwtPlot::xBottom, double(sinceMs), double(untilMs));
    setAxisAutoScale(QwtPlot::yLeft);
    replot();
}

void CStatusChart::clearSamples() {
    clearLines();
    m_failures->setSamples(QVector<QPointF>());
    // Without an address there is no time to show: no axes of 1970.
    showAxes(false);
    setTitle(titled(QStringLiteral("选择一行查看其地址的连接时间"), false));
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

QwtText CStatusChart::titled(const QString& text, bool address) {
    // Each title is made whole: a label keeps no colour or weight of the one before.
    QwtText title(text);
    title.setColor(address ? QColor(Qt::black) : QColor(Qt::gray));
    QFont font = title.font();
    font.setBold(address);
    title.setFont(font);
    return title;
}

void CStatusChart::showAxes(bool shown) {
    enableAxis(QwtPlot::xBottom, shown);
    enableAxis(QwtPlot::yLeft, shown);
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
