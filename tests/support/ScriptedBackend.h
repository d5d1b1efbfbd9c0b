#pragma once

#include <boost/shared_ptr.hpp>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "Hlx/IDataServiceBackend.h"

// A data-service backend for tests: records every request, answers from scripted data or with
// scripted errors, and can hold answers until the test releases them (slow servers, late
// answers). Answers reach the requester on the client centre's worker threads, as in production.
class ScriptedBackend : public Hlx::IDataServiceBackend {
public:
    struct Request {
        bool isQuery = true;
        bool toCentre = true;
        std::string subsystem;
        int dataType = 0;
        std::string condition;
        int operateType = -1;
        rkservice::IDataList datas;
        std::thread::id thread;
    };

    ScriptedBackend();

    // Installs a fresh backend in the client centre and returns it.
    static boost::shared_ptr<ScriptedBackend> install();

    // Scripted answers. A query answer may be keyed by condition; the condition-less one serves
    // every other condition.
    void setQueryAnswer(int dataType, const rkservice::IDataList& datas,
                        const utils::RKError& error = utils::RKError());
    void setQueryAnswer(int dataType, const std::string& condition,
                        const rkservice::IDataList& datas,
                        const utils::RKError& error = utils::RKError());
    void setOperateAnswer(int dataType, const utils::RKError& error);

    void setSubsystems(const std::vector<Hlx::SubsystemInfo>& subsystems);
    void setLoginTypeAuth(bool held);

    // While holding, answers wait until released (in the order received).
    void setHolding(bool holding);
    int heldCount() const;
    void releaseAll();
    bool releaseNext();
    // Releases the answer held last (answers overtaking each other).
    bool releaseNewest();

    // Processes events until every request that is not held has been answered and its slots
    // have run (answers can start further requests, which are followed too).
    void settle() const;
    // Stops holding, releases every held answer and settles: a test's clean end.
    void drain();

    std::vector<Request> requests() const;
    std::vector<Request> requestsOf(int dataType) const;
    int requestCount() const;
    void clearRequests();

    // IDataServiceBackend
    void query(const Hlx::CRequestTarget& target, const rkservice::COrinQueryDataReq& request,
               const Hlx::CQueryAnswer& answer) override;
    void operate(const Hlx::CRequestTarget& target, const rkservice::COperateDataReq& request,
                 const Hlx::COperateAnswer& answer) override;
    std::vector<Hlx::SubsystemInfo> subsystems() const override;
    bool hasClientLoginTypeAuth(int loginType) const override;

private:
    struct QueryScript {
        rkservice::IDataList datas;
        utils::RKError error;
    };
    struct Held {
        bool isQuery;
        boost::shared_ptr<Hlx::CQueryAnswer> queryAnswer;
        boost::shared_ptr<Hlx::COperateAnswer> operateAnswer;
        rkservice::IDataList datas;
        utils::RKError error;
    };

    void deliver(const Held& held);
    bool releaseOne(bool newest);

    mutable std::mutex m_mutex;
    std::map<std::pair<int, std::string>, QueryScript> m_queryByCondition;
    std::map<int, QueryScript> m_queryAnswers;
    std::map<int, utils::RKError> m_operateAnswers;
    std::vector<Hlx::SubsystemInfo> m_subsystems;
    bool m_loginTypeAuth = true;
    bool m_holding = false;
    std::vector<Held> m_held;
    std::vector<Request> m_requests;
};
