// The live updates reach panels only through their reload interface and ask the rest of the
// console by signals: a panel of a class they do not know is reloaded by what it shows, waits
// while its load runs or a box of its own is open, and no window is needed.

#include <QDialog>
#include <QSignalSpy>

#include <QtTest>
#include <set>
#include "CProbeAllowList.h"
#include "CSourceProber.h"
#include "LoopbackListeners.h"

#include "CLiveUpdates.h"
#include "CProbeAllowList.h"
#include "CSourceProber.h"
#include "EmbeddedService.h"
#include "Hlx/IorinDockableWidget.h"
#include "LoopbackListeners.h"
#include "RecordBuilders.h"
#include "TestIds.h"
#include "panels/IReloadable.h"
#include "rkservice/CGlobalFeaturePermissionInfo.h"
#include "rkservice/DataTypeIds.h"

using namespace TestIds;

namespace {

// A panel the live updates know nothing of but its interface; it counts what it was asked.
class CountingPanel : public Hlx::IorinDockableWidget, public Hlx::IReloadable {
public:
    CountingPanel(const QString& name, std::set<Content> shown)
        : Hlx::IorinDockableWidget(name, nullptr), m_shown(std::move(shown)) {}

    bool shows(Content content) const override { return m_shown.count(content) > 0; }
    bool isLoading() const override {
        ++loadingAsked;
        return loading;
    }
    void reloadSources() override { ++sourceReloads; }
    void reloadWholeQuoteSettings() override { ++settingsReloads; }
    void reloadLevel2Token() override { ++tokenReloads; }

    bool loading = false;
    int sourceReloads = 0;
    int settingsReloads = 0;
    int tokenReloads = 0;
    // How often the live updates asked, each time they looked whether they may reload.
    mutable int loadingAsked = 0;

private:
    std::set<Content> m_shown;
};

}  // namespace

class TestLiveUpdates : public QObject {
    Q_OBJECT

    std::unique_ptr<EmbeddedService> m_embedded;
    std::unique_ptr<QObject> m_owner;  // stands where the window would
    CLiveUpdates* m_live = nullptr;

    // Changes made with every right, whoever the current account is.
    bool addSource(int port) {
        rkservice::COperateDataReq request;
        request.dataType = kDataQuoteSources;
        request.operateType = rkservice::kOperateAdd;
        request.datas.push_back(RecordBuilders::source(0, kKxStocks, kStocks, "192.0.2.90", port));
        return m_embedded->administrator()
            .operate(Hlx::CRequestTarget::centre(), request, nullptr)
            .isSuccess();
    }

    bool setToken(const std::string& token) {
        rkservice::COperateDataReq request;
        request.dataType = kDataLevel2Tokens;
        request.operateType = rkservice::kOperateAdd;
        request.datas.push_back(RecordBuilders::token(token));
        return m_embedded->administrator()
            .operate(Hlx::CRequestTarget::centre(), request, nullptr)
            .isSuccess();
    }

private slots:
    void init() {
        m_embedded.reset(new EmbeddedService);
        QVERIFY2(m_embedded->isOpen(), qPrintable(m_embedded->error()));
        QVERIFY(m_embedded->loginAs("admin"));
        m_owner.reset(new QObject);
        m_live = new CLiveUpdates(m_embedded->admin(), nullptr, m_owner.get());
    }

    void cleanup() {
        m_owner.reset();
        m_embedded.reset();
    }

    void eachPanelReloadsWhatItShows() {
        CountingPanel sources("sources", {Hlx::IReloadable::QuoteSources});
        CountingPanel token("token", {Hlx::IReloadable::Level2Token});
        m_live->follow(&sources);
        m_live->follow(&token);
        QSignalSpy reloading(m_live, &CLiveUpdates::reloading);
        QVERIFY(addSource(9501));
        QTRY_COMPARE(sources.sourceReloads, 1);
        QVERIFY(setToken("LiveToken1"));
        QTRY_COMPARE(token.tokenReloads, 1);
        QTRY_VERIFY(!m_live->isPending());
        QCOMPARE(sources.tokenReloads + sources.settingsReloads, 0);
        QCOMPARE(token.sourceReloads + token.settingsReloads, 0);
        QCOMPARE(reloading.count(), 2);
        QCOMPARE(reloading.at(0).at(0).toString(), QString("sources"));
        QCOMPARE(reloading.at(1).at(0).toString(), QString("token"));
    }

    void aLoadingPanelReloadsWhenItsLoadHasEnded() {
        CountingPanel sources("sources", {Hlx::IReloadable::QuoteSources});
        m_live->follow(&sources);
        sources.loading = true;
        QVERIFY(addSource(9502));
        QTRY_VERIFY(m_live->isPending());
        // Three more looks that found the panel busy, and still no reload.
        const int asked = sources.loadingAsked;
        QTRY_VERIFY(sources.loadingAsked >= asked + 3);
        QCOMPARE(sources.sourceReloads, 0);
        sources.loading = false;
        QTRY_COMPARE(sources.sourceReloads, 1);
    }

    void aPanelWithItsOwnBoxOpenReloadsAfterTheBox() {
        CountingPanel sources("sources", {Hlx::IReloadable::QuoteSources});
        m_live->follow(&sources);
        sources.show();
        QDialog box(&sources);
        box.setModal(true);
        box.show();
        QTRY_COMPARE(QApplication::activeModalWidget(), &box);
        QVERIFY(addSource(9503));
        QTRY_VERIFY(m_live->isPending());
        // Three more looks that found the panel busy, and still no reload.
        const int asked = sources.loadingAsked;
        QTRY_VERIFY(sources.loadingAsked >= asked + 3);
        QCOMPARE(sources.sourceReloads, 0);
        box.close();
        QTRY_COMPARE(sources.sourceReloads, 1);
    }

    void aSourceThatGoesDownIsNoted() {
        LoopbackListeners listeners;
        const int port = listeners.open();
        rkservice::COperateDataReq request;
        request.dataType = kDataQuoteSources;
        request.operateType = rkservice::kOperateAdd;
        request.datas.push_back(RecordBuilders::source(0, kKxStocks, kStocks, "127.0.0.1", port));
        QVERIFY(m_embedded->administrator()
                    .operate(Hlx::CRequestTarget::centre(), request, nullptr)
                    .isSuccess());
        CQuotesService& service = *m_embedded->service();
        service.prober().tcp().setAllowList(CProbeAllowList::only({QStringLiteral("127.0.0.1")}));
        CountingPanel sources("sources", {Hlx::IReloadable::QuoteSources});
        m_live->follow(&sources);
        QTRY_COMPARE(sources.sourceReloads, 1);
        QSignalSpy notes(m_live, &CLiveUpdates::statusMessage);

        std::vector<Hlx::CProbeResult> results;
        QVERIFY(
            service.probeSources(CCaller::owner().inSession("a"), {}, true, &results).isSuccess());
        listeners.shut(port);
        QVERIFY(
            service.probeSources(CCaller::owner().inSession("b"), {}, true, &results).isSuccess());
        const QString expected = QStringLiteral("行情源 127.0.0.1:%1 不可达").arg(port);

        QTRY_VERIFY(!notes.isEmpty() && notes.last().at(0).toString() == expected);
        // Reachable first: no note of it, and no reload for either finding.
        QCOMPARE(notes.count(), 1);
        QCOMPARE(sources.sourceReloads, 1);
    }

    void aPanelGoneIsForgotten() {
        auto gone = std::make_unique<CountingPanel>(
            "gone", std::set<Hlx::IReloadable::Content>{Hlx::IReloadable::QuoteSources});
        CountingPanel kept("kept", {Hlx::IReloadable::QuoteSources});
        m_live->follow(gone.get());
        m_live->follow(&kept);
        gone.reset();
        QSignalSpy reloading(m_live, &CLiveUpdates::reloading);
        QVERIFY(addSource(9504));
        QTRY_COMPARE(kept.sourceReloads, 1);
        QTRY_VERIFY(!m_live->isPending());
        QCOMPARE(reloading.count(), 1);
        QCOMPARE(reloading.at(0).at(0).toString(), QString("kept"));
    }

    void rightsOfTheCurrentAccountAskForARebuild() {
        CountingPanel sources("sources", {Hlx::IReloadable::QuoteSources});
        m_live->follow(&sources);
        QVERIFY(m_embedded->loginAs("viewer"));
        QSignalSpy rebuild(m_live, &CLiveUpdates::rebuildWanted);
        QVERIFY(m_embedded->administrator().setRights("viewer", {10385}).isSuccess());
        QTRY_COMPARE(rebuild.count(), 1);
        // Another account's rights ask for nothing: heard before the source added after them.
        QVERIFY(m_embedded->administrator().setRights("stock_op", {10937}).isSuccess());
        QVERIFY(addSource(9505));
        QTRY_COMPARE(sources.sourceReloads, 1);
        QCOMPARE(rebuild.count(), 1);
    }
};

QTEST_MAIN(TestLiveUpdates)
#include "tst_live_updates.moc"
