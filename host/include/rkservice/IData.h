#pragma once

#include <boost/shared_ptr.hpp>
#include <string>
#include <vector>

namespace rkservice {

class IData;
typedef boost::shared_ptr<IData> IDataPtr;

// The generic record the data service exchanges. Each record read from a server carries the
// name of its sub-system as its system tag.
class IData {
public:
    virtual ~IData();

    const std::string& getSystemTag() const { return m_systemTag; }
    void setSystemTag(const std::string& tag) { m_systemTag = tag; }

    // A deep copy, so a request can be taken over by another thread while the sender keeps its own.
    virtual IDataPtr clone() const = 0;

private:
    std::string m_systemTag;
};

typedef std::vector<IDataPtr> IDataList;

// Deep copies of every record of a list.
IDataList cloneAll(const IDataList& datas);

}  // namespace rkservice
