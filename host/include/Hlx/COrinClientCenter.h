#pragma once

#include <QObject>
#include <QPointer>
#include <QString>
#include <boost/shared_ptr.hpp>
#include <functional>
#include <mutex>
#include <string>

#include "Hlx/COrinClient.h"
#include "Hlx/CRequestTarget.h"
#include "Hlx/DataCallbacks.h"
#include "Hlx/IDataServiceBackend.h"

class QThreadPool;
class QWidget;

namespace Hlx {

class CAnswerState;

// The process-wide client centre: every request of the library goes through it. A request is
// copied on the caller's thread, carried out by the backend on a worker thread, and answered
// exactly once on a worker thread, never inline on the caller's thread.
class COrinClientCenter : public QObject {
    Q_OBJECT
public:
    static COrinClientCenter* instance();

    void queryData_async(const rkservice::COrinQueryDataReqPtr& request,
                         const QueryCallback& callback, bool flag);
    void operateData_async(const rkservice::COperateDataReqPtr& request,
                           const OperateCallback& callback, bool flag);

    bool isMultiServers() const;
    // The client of a sub-system; the empty name gives the default sub-system's client. An unknown
    // name gives a client that answers every request with an error naming the sub-system.
    COrinClientPtr getClientByName(const std::string& name);
    QString getServerNameBySystemTag(const std::string& systemTag) const;
    bool hasClientLoginTypeAuth(int loginType) const;
    bool isIPv6Addr(const std::string& text) const;

    // Shows a non-modal information (success) or error box over the parent.
    void showServerMsgCallBack(int msgType, bool success, QWidget* parent, const QString& title,
                               const QString& text, bool flag1, bool flag2);

    // Host side.
    void setBackend(const boost::shared_ptr<IDataServiceBackend>& backend);
    boost::shared_ptr<IDataServiceBackend> backend() const;
    // The sub-system the host's operator has chosen (the console's tool bar): an add sent to the
    // client centre goes there; empty sends it to the default sub-system. Queries, modifies and
    // deletes through the centre and getClientByName("") do not follow it.
    void setChosenSubsystem(const std::string& name);
    std::string chosenSubsystem() const;
    // Overrides the backend's answer to hasClientLoginTypeAuth(0); -1 returns to the backend's.
    void setLoginTypeAuthOverride(int value);
    // Whether server messages open a box (off in tests that only watch the signal).
    void setShowMessageBoxes(bool show);
    // Waits until every request sent so far has been answered (for shutdown and tests).
    bool waitForIdle(int msecs = 30000);
    // Requests sent whose callback has not finished yet.
    int pendingCount() const;
    QThreadPool* pool() const { return m_pool; }

    // Routing of a request by target: used by COrinClient.
    void sendQuery(const CRequestTarget& target, const rkservice::COrinQueryDataReqPtr& request,
                   const QueryCallback& callback);
    void sendOperate(const CRequestTarget& target, const rkservice::COperateDataReqPtr& request,
                     const OperateCallback& callback);

signals:
    // A server message was shown (or would have been, with boxes off).
    void serverMessageShown(int msgType, bool success, QWidget* parent, const QString& title,
                            const QString& text);

private:
    COrinClientCenter();
    void dispatch(
        const CRequestTarget& target,
        const std::function<void(const utils::RKError&, const std::vector<rkservice::IDataPtr>&,
                                 const bson::BSONObj&)>& deliver,
        const std::function<void(IDataServiceBackend&, const boost::shared_ptr<CAnswerState>&)>&
            perform);
    ~COrinClientCenter() override;

    mutable std::mutex m_mutex;
    boost::shared_ptr<IDataServiceBackend> m_backend;
    QThreadPool* m_pool;
    int m_loginTypeOverride = -1;
    std::string m_chosenSubsystem;
    bool m_showBoxes = true;
};

}  // namespace Hlx
