#pragma once

#include <QMap>
#include <QString>
#include <QStringList>
#include <QVector>
#include <boost/shared_ptr.hpp>
#include <boost/thread/recursive_mutex.hpp>
#include <string>
#include <vector>

#include "Zu/CCommonDialog.h"
#include "bson/BSONObj.h"
#include "model/CAnswerGuard.h"
#include "model/PanelQuotesManageGlobal.h"
#include "rkservice/COrinBrokerInfo.h"
#include "rkservice/IData.h"
#include "utils/RKError.h"

namespace Zu {
class CComboBox;
class CLoadingMaskWidget;
}  // namespace Zu

namespace Hlx {

class CSafeLineEdit;

// Adds one futures or futures-option quote source by choosing a platform, one of its futures
// companies and one of that company's server groups.
class PANELQUOTESMANAGE_EXPORT CSetFutureQuotesDialog : public Zu::CCommonDialog {
    Q_OBJECT
public:
    // Widget ids of the combos (event 71) and the buttons (event 5).
    enum ComboId { PlatformCombo = 0, BrokerCombo = 1, ServerGroupCombo = 2 };
    enum ButtonId { SubmitButton = 0, CloseButton = 1 };

    CSetFutureQuotesDialog(int tradeType, QWidget* parent);
    ~CSetFutureQuotesDialog() override;

    // Binds the dialog to a sub-system and reloads the platform and broker lists.
    void setBasicInfo(const QString& systemName);

    bool handleEvent(int type, int id, int arg, QString text, void* extra) override;

    int tradeType() const { return m_tradeType; }
    QString systemName() const { return m_systemName; }
    bool routeBySystem() const { return m_routeBySystem; }
    bool platformsPending() const { return m_platformsPending; }
    bool brokersPending() const { return m_brokersPending; }
    Zu::CComboBox* platformCombo() const { return m_platformCombo; }
    Zu::CComboBox* brokerCombo() const { return m_brokerCombo; }
    Zu::CComboBox* serverGroupCombo() const { return m_serverGroupCombo; }
    CSafeLineEdit* marketEdit() const { return m_marketEdit; }
    Zu::CLoadingMaskWidget* loadingMask() const { return m_loadingMask; }
    QMap<QString, int> platformIds() const { return m_platformIds; }
    QStringList brokerNames() const { return m_brokerNames; }
    QStringList serverGroupNameList() const { return m_serverGroupNameList; }

signals:
    void sigInitPlatform(const std::vector<rkservice::IDataPtr>& values);
    void sigOnOperationFinished(bool bError, QString qsError);

public slots:
    void slotInitPlatform(const std::vector<rkservice::IDataPtr>& values);
    void slotOnOperationFinished(bool bError, QString qsError);

protected:
    void createUi();
    void initPlatform();
    // Answers; run on the data service's worker thread and only emit.
    void onQueryData(const utils::RKError& error, const std::vector<rkservice::IDataPtr>& datas,
                     int count, bson::BSONObj result);
    void onOperationAddQuotes(const utils::RKError& err, bson::BSONObj result);

private:
    void onPlatformChanged();
    void onBrokerChanged();
    // Empties a dependent combo and its text list down to the "--请选择--" entry.
    void resetChoices(Zu::CComboBox* combo, QStringList* texts);
    // The brokers of the platform chosen now; null when there are none.
    const QVector<boost::shared_ptr<rkservice::COrinBrokerInfo>>* brokersOfChosenPlatform() const;
    void submit();

    QString m_systemName;
    bool m_platformsPending;
    bool m_brokersPending;
    bool m_routeBySystem;
    Zu::CComboBox* m_platformCombo;
    Zu::CComboBox* m_brokerCombo;
    Zu::CComboBox* m_serverGroupCombo;
    QWidget* m_spare;
    CSafeLineEdit* m_marketEdit;
    int m_tradeType;
    QMap<QString, int> m_platformIds;
    QMap<int, QVector<boost::shared_ptr<rkservice::COrinBrokerInfo>>> m_brokersByPlatform;
    QMap<QString, std::vector<std::string>> m_serverGroupAddresses;
    QMap<int, std::string> m_serverGroupNames;
    QStringList m_brokerNames;
    QStringList m_serverGroupNameList;
    boost::recursive_mutex m_mutex;
    Zu::CLoadingMaskWidget* m_loadingMask;
    CAnswerGuard m_answerGuard;
};

}  // namespace Hlx
