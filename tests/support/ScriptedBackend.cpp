#include "ScriptedBackend.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QThread>
#include <boost/make_shared.hpp>

#include "Hlx/COrinClientCenter.h"

ScriptedBackend::ScriptedBackend() : m_subsystems{{"sys1", "一号系统"}} {}

boost::shared_ptr<ScriptedBackend> ScriptedBackend::install() {
    auto backend = boost::make_shared<ScriptedBackend>();
    Hlx::COrinClientCenter::instance()->setBackend(backend);
    return backend;
}

void ScriptedBackend::setQueryAnswer(int dataType, const rkservice::IDataList& datas,
                                     const utils::RKError& error) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_queryAnswers[dataType] = {datas, error};
}

void ScriptedBackend::setQueryAnswer(int dataType, const std::string& condition,
                                     const rkservice::IDataList& datas,
                                     const utils::RKError& error) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_queryByCondition[{dataType, condition}] = {datas, error};
}

void ScriptedBackend::setOperateAnswer(int dataType, const utils::RKError& error) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_operateAnswers[dataType] = error;
}

void ScriptedBackend::setSubsystems(const std::vector<Hlx::SubsystemInfo>& subsystems) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_subsystems = subsystems;
}

void ScriptedBackend::setLoginTypeAuth(bool held) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_loginTypeAuth = held;
}

void ScriptedBackend::setHolding(bool holding) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_holding = holding;
}

int ScriptedBackend::heldCount() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return int(m_held.size());
}

void ScriptedBackend::releaseAll() {
    while (releaseNext()) {
    }
}

void ScriptedBackend::drain() {
    setHolding(false);
    releaseAll();
    settle();
}

bool ScriptedBackend::releaseNext() {
    return releaseOne(false);
}

bool ScriptedBackend::releaseNewest() {
    return releaseOne(true);
}

bool ScriptedBackend::releaseOne(bool newest) {
    Held held;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_held.empty())
            return false;
        const auto which = newest ? m_held.end() - 1 : m_held.begin();
        held = *which;
        m_held.erase(which);
    }
    deliver(held);
    return true;
}

void ScriptedBackend::settle() const {
    Hlx::COrinClientCenter* centre = Hlx::COrinClientCenter::instance();
    QElapsedTimer timer;
    timer.start();
    int quietRounds = 0;
    while (quietRounds < 3 && timer.elapsed() < 10000) {
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
        const bool quiet = centre->pendingCount() <= heldCount();
        quietRounds = quiet ? quietRounds + 1 : 0;
        if (!quiet)
            QThread::yieldCurrentThread();
    }
}

std::vector<ScriptedBackend::Request> ScriptedBackend::requests() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_requests;
}

std::vector<ScriptedBackend::Request> ScriptedBackend::requestsOf(int dataType) const {
    std::vector<Request> matching;
    for (const Request& request : requests()) {
        if (request.dataType == dataType)
            matching.push_back(request);
    }
    return matching;
}

int ScriptedBackend::requestCount() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return int(m_requests.size());
}

void ScriptedBackend::clearRequests() {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_requests.clear();
}

void ScriptedBackend::deliver(const Held& held) {
    if (held.isQuery)
        held.queryAnswer->answer(held.error, held.datas);
    else
        held.operateAnswer->answer(held.error);
}

void ScriptedBackend::query(const Hlx::CRequestTarget& target,
                            const rkservice::COrinQueryDataReq& request,
                            const Hlx::CQueryAnswer& answer) {
    Held held;
    held.isQuery = true;
    held.queryAnswer = boost::make_shared<Hlx::CQueryAnswer>(answer);
    bool hold;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        Request recorded;
        recorded.toCentre = target.isCentre();
        recorded.subsystem = target.subsystemName();
        recorded.dataType = request.dataType;
        recorded.condition = request.condition;
        recorded.thread = std::this_thread::get_id();
        m_requests.push_back(recorded);

        auto byCondition = m_queryByCondition.find({request.dataType, request.condition});
        if (byCondition != m_queryByCondition.end()) {
            held.datas = byCondition->second.datas;
            held.error = byCondition->second.error;
        } else if (m_queryAnswers.count(request.dataType)) {
            held.datas = m_queryAnswers[request.dataType].datas;
            held.error = m_queryAnswers[request.dataType].error;
        }
        hold = m_holding;
        if (hold)
            m_held.push_back(held);
    }
    if (!hold)
        deliver(held);
}

void ScriptedBackend::operate(const Hlx::CRequestTarget& target,
                              const rkservice::COperateDataReq& request,
                              const Hlx::COperateAnswer& answer) {
    Held held;
    held.isQuery = false;
    held.operateAnswer = boost::make_shared<Hlx::COperateAnswer>(answer);
    bool hold;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        Request recorded;
        recorded.isQuery = false;
        recorded.toCentre = target.isCentre();
        recorded.subsystem = target.subsystemName();
        recorded.dataType = request.dataType;
        recorded.operateType = request.operateType;
        recorded.datas = request.datas;
        recorded.thread = std::this_thread::get_id();
        m_requests.push_back(recorded);
        if (m_operateAnswers.count(request.dataType))
            held.error = m_operateAnswers[request.dataType];
        hold = m_holding;
        if (hold)
            m_held.push_back(held);
    }
    if (!hold)
        deliver(held);
}

std::vector<Hlx::SubsystemInfo> ScriptedBackend::subsystems() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_subsystems;
}

bool ScriptedBackend::hasClientLoginTypeAuth(int loginType) const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return loginType == 0 && m_loginTypeAuth;
}
