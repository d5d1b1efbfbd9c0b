#include "model/CSubsystemNames.h"

#include "Hlx/COrinClientCenter.h"
#include "Hlx/IDataServiceBackend.h"

namespace Hlx {

QMap<QString, QString> CSubsystemNames::current() {
    QMap<QString, QString> names;
    const boost::shared_ptr<IDataServiceBackend> backend = COrinClientCenter::instance()->backend();
    if (!backend)
        return names;
    for (const SubsystemInfo& subsystem : backend->subsystems()) {
        if (!subsystem.displayName.empty())
            names.insert(QString::fromStdString(subsystem.name),
                         QString::fromStdString(subsystem.displayName));
    }
    return names;
}

}  // namespace Hlx
