#include "Hlx/COrinClientCenter.h"

#include <arpa/inet.h>

#include <QMessageBox>
#include <QThreadPool>
#include <QWidget>
#include <boost/make_shared.hpp>
#include <condition_variable>

#include "CAnswerState.h"
#include "Hlx/CAnswer.h"
#include "Zu/CMessageBox.h"
#include "rkservice/DataTypeIds.h"

namespace Hlx {

namespace {

// Answers may block on a panel's lock while a modal dialog runs; enough threads keep the others
// flowing.
const int kWorkerThreads = 8;

std::mutex g_idleMutex;
std::condition_variable g_idleChanged;
int g_outstanding = 0;

void beginRequest() {
    std::lock_guard<std::mutex> lock(g_idleMutex);
    ++g_outstanding;
}

void endRequest() {
    std::lock_guard<std::mutex> lock(g_idleMutex);
    --g_outstanding;
    g_idleChanged.notify_all();
}

// Ends the request however its callback leaves, so waitForIdle never waits for it for ever.
struct RequestEnd {
    RequestEnd() = default;
    RequestEnd(const RequestEnd&) = delete;
    RequestEnd& operator=(const RequestEnd&) = delete;
    ~RequestEnd() { endRequest(); }
};

// Runs a requester's callback on a worker. Whatever it throws stops here: an exception leaving a
// pool thread would end the process, and the other requests' answers must go on.
void deliverGuarded(const std::function<void()>& deliver) {
    RequestEnd end;
    try {
        deliver();
    } catch (const std::exception& e) {
        qWarning("COrinClientCenter: an answer callback threw: %s", e.what());
    } catch (...) {
        qWarning("COrinClientCenter: an answer callback threw");
    }
}

void post(QThreadPool* pool, std::function<void()> work) {
    pool->start([work = std::move(work)]() { work(); });
}

bool knowsSubsystem(const IDataServiceBackend& backend, const std::string& name) {
    for (const SubsystemInfo& info : backend.subsystems()) {
        if (info.name == name)
            return true;
    }
    return false;
}

// Why a request cannot reach the backend; empty when it can.
std::string refusal(const boost::shared_ptr<IDataServiceBackend>& backend,
                    const CRequestTarget& target) {
    if (!backend)
        return "未连接数据服务";
    if (!target.isCentre() && !knowsSubsystem(*backend, target.subsystemName()))
        return "分系统不存在: " + target.subsystemName();
    return std::string();
}

}  // namespace

COrinClientCenter* COrinClientCenter::instance() {
    static COrinClientCenter* centre = new COrinClientCenter;
    return centre;
}

COrinClientCenter::COrinClientCenter() : m_pool(new QThreadPool(this)) {
    m_pool->setMaxThreadCount(kWorkerThreads);
}

COrinClientCenter::~COrinClientCenter() = default;

void COrinClientCenter::setBackend(const boost::shared_ptr<IDataServiceBackend>& backend) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_backend = backend;
}

boost::shared_ptr<IDataServiceBackend> COrinClientCenter::backend() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_backend;
}

void COrinClientCenter::queryData_async(const rkservice::COrinQueryDataReqPtr& request,
                                        const QueryCallback& callback, bool /*flag*/) {
    sendQuery(CRequestTarget::centre(), request, callback);
}

void COrinClientCenter::operateData_async(const rkservice::COperateDataReqPtr& request,
                                          const OperateCallback& callback, bool /*flag*/) {
    // The centre's add goes to the sub-system the operator chose; an unknown one is refused as
    // any named sub-system is, never sent to the default one.
    const std::string chosen = chosenSubsystem();
    const bool add = request && request->operateType == rkservice::kOperateAdd;
    sendOperate(
        add && !chosen.empty() ? CRequestTarget::subsystem(chosen) : CRequestTarget::centre(),
        request, callback);
}

void COrinClientCenter::setChosenSubsystem(const std::string& name) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_chosenSubsystem = name;
}

std::string COrinClientCenter::chosenSubsystem() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_chosenSubsystem;
}

// Carries one request: counts it, refuses what cannot reach the backend, and otherwise runs
// `perform` (the backend call) on a worker; `deliver` calls the requester's callback there.
void COrinClientCenter::dispatch(
    const CRequestTarget& target, const CAnswerState::Deliver& deliver,
    const std::function<void(IDataServiceBackend&, const boost::shared_ptr<CAnswerState>&)>&
        perform) {
    QThreadPool* pool = m_pool;
    beginRequest();
    auto state = boost::make_shared<CAnswerState>(
        [pool, deliver](const utils::RKError& error, const std::vector<rkservice::IDataPtr>& datas,
                        const bson::BSONObj& result) {
            post(pool, [deliver, error, datas, result]() {
                deliverGuarded([&]() { deliver(error, datas, result); });
            });
        });
    const boost::shared_ptr<IDataServiceBackend> service = backend();
    const std::string refused = refusal(service, target);
    if (!refused.empty()) {
        state->answer(utils::RKError::fail(refused), {}, bson::BSONObj());
        return;
    }
    post(pool, [service, perform, state]() {
        try {
            perform(*service, state);
        } catch (const std::exception& e) {
            state->answer(utils::RKError::fail(e.what()), {}, bson::BSONObj());
        } catch (...) {
            state->answer(utils::RKError::fail("数据服务内部错误"), {}, bson::BSONObj());
        }
    });
}

void COrinClientCenter::sendQuery(const CRequestTarget& target,
                                  const rkservice::COrinQueryDataReqPtr& request,
                                  const QueryCallback& callback) {
    // The copy is taken here, on the caller's thread, as a network client serialises on send.
    const rkservice::COrinQueryDataReq copy = request ? *request : rkservice::COrinQueryDataReq();
    dispatch(
        target,
        [callback](const utils::RKError& error, const std::vector<rkservice::IDataPtr>& datas,
                   const bson::BSONObj& result) {
            if (callback)
                callback(error, datas, int(datas.size()), result);
        },
        [target, copy](IDataServiceBackend& service, const boost::shared_ptr<CAnswerState>& state) {
            service.query(target, copy, CQueryAnswer(state));
        });
}

void COrinClientCenter::sendOperate(const CRequestTarget& target,
                                    const rkservice::COperateDataReqPtr& request,
                                    const OperateCallback& callback) {
    rkservice::COperateDataReq copy;
    if (request) {
        copy.dataType = request->dataType;
        copy.operateType = request->operateType;
        copy.datas = rkservice::cloneAll(request->datas);
    }
    dispatch(
        target,
        [callback](const utils::RKError& error, const std::vector<rkservice::IDataPtr>&,
                   const bson::BSONObj& result) {
            if (callback)
                callback(error, result);
        },
        [target, copy](IDataServiceBackend& service, const boost::shared_ptr<CAnswerState>& state) {
            service.operate(target, copy, COperateAnswer(state));
        });
}

bool COrinClientCenter::isMultiServers() const {
    const boost::shared_ptr<IDataServiceBackend> service = backend();
    return service && service->subsystems().size() > 1;
}

COrinClientPtr COrinClientCenter::getClientByName(const std::string& name) {
    std::string resolved = name;
    if (resolved.empty()) {
        const boost::shared_ptr<IDataServiceBackend> service = backend();
        if (service && !service->subsystems().empty())
            resolved = service->subsystems().front().name;
    }
    return boost::make_shared<COrinClient>(this, resolved);
}

QString COrinClientCenter::getServerNameBySystemTag(const std::string& systemTag) const {
    const boost::shared_ptr<IDataServiceBackend> service = backend();
    if (service) {
        for (const SubsystemInfo& info : service->subsystems()) {
            if (info.name == systemTag)
                return QString::fromStdString(info.displayName);
        }
    }
    return QString::fromStdString(systemTag);
}

bool COrinClientCenter::hasClientLoginTypeAuth(int loginType) const {
    boost::shared_ptr<IDataServiceBackend> service;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (loginType == 0 && m_loginTypeOverride >= 0)
            return m_loginTypeOverride > 0;
        service = m_backend;
    }
    return service && service->hasClientLoginTypeAuth(loginType);
}

void COrinClientCenter::setLoginTypeAuthOverride(int value) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_loginTypeOverride = value;
}

bool COrinClientCenter::isIPv6Addr(const std::string& text) const {
    in6_addr address;
    return inet_pton(AF_INET6, text.c_str(), &address) == 1;
}

void COrinClientCenter::setShowMessageBoxes(bool show) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_showBoxes = show;
}

void COrinClientCenter::showServerMsgCallBack(int msgType, bool success, QWidget* parent,
                                              const QString& title, const QString& text,
                                              bool /*flag1*/, bool /*flag2*/) {
    bool showBox;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        showBox = m_showBoxes;
    }
    if (showBox) {
        const bool isError = msgType != 0 || !success;
        auto* box = new QMessageBox(isError ? QMessageBox::Critical : QMessageBox::Information,
                                    title, text, QMessageBox::Ok, parent);
        box->setWindowModality(Qt::NonModal);
        box->setAttribute(Qt::WA_DeleteOnClose);
        box->setObjectName(QStringLiteral("serverMessageBox"));
        Zu::CMessageBox::localise(box);
        box->show();
    }
    emit serverMessageShown(msgType, success, parent, title, text);
}

int COrinClientCenter::pendingCount() const {
    std::lock_guard<std::mutex> lock(g_idleMutex);
    return g_outstanding;
}

bool COrinClientCenter::waitForIdle(int msecs) {
    std::unique_lock<std::mutex> lock(g_idleMutex);
    return g_idleChanged.wait_for(lock, std::chrono::milliseconds(msecs),
                                  [] { return g_outstanding == 0; });
}

}  // namespace Hlx
