// audit-crash-writer DIR SEED COUNT: makes COUNT changes of quote sources (add, modify, delete,
// chosen by SEED) through the data service on the database in DIR, one at a time, and prints a
// line after each, so that a test can kill it at a point of its choosing.

#include <QCoreApplication>
#include <cstdio>
#include <random>
#include <vector>

#include "CQuotesService.h"
#include "OwnerCalls.h"
#include "RecordBuilders.h"
#include "rkservice/DataTypeIds.h"

namespace {

// The stored sources' ids with the revisions a change of each sends back.
std::vector<std::pair<int, long long>> storedIds(CQuotesService& service) {
    std::vector<rkservice::IDataPtr> datas;
    OwnerCalls::query(service, rkservice::kDataQuoteSources, &datas);
    std::vector<std::pair<int, long long>> ids;
    for (const rkservice::IDataPtr& data : datas) {
        if (auto* source = dynamic_cast<rkservice::COrinQuoterSourceInfo*>(data.get()))
            ids.emplace_back(source->m_nId, source->getRevision());
    }
    return ids;
}

// One change: half adds, then modifies and deletes of a stored source. Random ports, so that
// a modify the trail missed would show in the stored row.
utils::RKError changeOnce(CQuotesService& service, std::mt19937& random) {
    const std::vector<std::pair<int, long long>> ids = storedIds(service);
    const int choice = ids.empty() ? 0 : int(random() % 10);
    const int port = 1024 + int(random() % 60000);
    const std::string address = "10.0.0." + std::to_string(1 + random() % 250);
    if (choice < 5)
        return OwnerCalls::operate(service, rkservice::kDataQuoteSources, rkservice::kOperateAdd,
                                   RecordBuilders::source(0, 10000, 2, address, port));
    const auto& stored = ids[random() % ids.size()];
    const int operation = choice < 8 ? rkservice::kOperateModify : rkservice::kOperateDelete;
    auto record = RecordBuilders::source(stored.first, 10000, 2, address, port);
    record->setRevision(stored.second);
    return OwnerCalls::operate(service, rkservice::kDataQuoteSources, operation, record);
}

}  // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    if (arguments.size() != 4) {
        std::fprintf(stderr, "usage: audit-crash-writer DIR SEED COUNT\n");
        return 2;
    }
    CServiceOptions options;
    options.dataDir = arguments.at(1);
    QString error;
    const boost::shared_ptr<CQuotesService> service = CQuotesService::open(options, &error);
    if (!service) {
        std::fprintf(stderr, "%s\n", qPrintable(error));
        return 3;
    }
    std::mt19937 random(arguments.at(2).toUInt());
    const int count = arguments.at(3).toInt();
    for (int i = 0; i < count; ++i) {
        const utils::RKError outcome = changeOnce(*service, random);
        std::printf("%s\n", outcome.isSuccess() ? "done" : outcome.errorMsg().c_str());
        std::fflush(stdout);
    }
    return 0;
}
