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

CStatusChart::CStatusChart(QWidget* parent) : QwtPlot(parent), m_curve(new QwtPlotCurve) {
    setObjectName(QStringLiteral("statusChart"));
    setCanvasBackground(Qt::white);
    setAxisTitle(QwtPlot::yLeft, QStringLiteral("连接时间 (ms)"));
    setAxisScaleDraw(QwtPlot::xBottom, new QwtDateScaleDraw(Qt::LocalTime));
    setAxisScaleEngine(QwtPlot::xBottom, new QwtDateScaleEngine(Qt::LocalTime));
    auto* grid = new QwtPlotGrid;
    grid->setMajorPen(QPen(QColor(0xe0, 0xe0, 0xe0)));
    grid->attach(this);
    m_curve->setPen(QPen(QColor(0x20, 0x60, 0xb0), 1.5));
    m_curve->setSymbol(new QwtSymbol(QwtSymbol::Ellipse, QBrush(QColor(0x20, 0x60, 0xb0)),
                                     QPen(Qt::NoPen), QSize(4, 4)));
    m_curve->attach(this);
    setMinimumHeight(160);
    clearSamples();
}

void CStatusChart::showSamples(const QString& title, const std::vector<Hlx::CProbeSample>& samples,
                               long long sinceMs, long long untilMs) {
    QVector<QPointF> points;
    points.reserve(int(samples.size()));
    for (const Hlx::CProbeSample& sample : samples) {
        // A connect time only where the address answered.
        if (sample.state == CProbeVocabulary::kReachable && sample.connectUs > 0)
            points.append(QPointF(double(sample.timeMs), sample.connectUs / 1000.0));
    }
    m_curve->setSamples(points);
    setTitle(title);
    setAxisScale(QwtPlot::xBottom, double(sinceMs), double(untilMs));
    setAxisAutoScale(QwtPlot::yLeft);
    replot();
}

void CStatusChart::clearSamples() {
    m_curve->setSamples(QVector<QPointF>());
    setTitle(QString());
    replot();
}

int CStatusChart::pointCount() const {
    return int(m_curve->dataSize());
}
