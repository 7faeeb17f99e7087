//===- qzmsg/CMessageContext.cpp - The circumstances of a message ---------===//
#include "qzmsg/CMessageContext.h"

#include "qzmsg/CAppContext.h"
#include "qzmsg/CErrorContext.h"
#include "qzmsg/CSourceContext.h"
#include "qzmsg/CThreadContext.h"

#include <sys/time.h>

namespace qzs {
namespace qzlib {

CMessageContext::CMessageContext(CSourceContext* source) : sourceContext(source) {
    timeval now{0, 0};
    if (::gettimeofday(&now, nullptr) != 0)
        now = timeval{0, 0};
    AddItem(new CContextItem(GetContextItemID("MessageTime"), now));
    AddItem(new CContextItem(GetContextItemID("MessageDetails"), &detailItems));
    AddContext(CErrorContext::GetContext());
    if (source)
        AddContext(source);
    AddContext(getAppContext());
}

void CMessageContext::AddDetail(const CDataItem& detail) {
    detailItems.push_back(detail);
}

bool CMessageContext::SetDetail(unsigned int index, const CDataItem& detail) {
    while (detailItems.size() < index)
        detailItems.emplace_back(0);
    if (index < detailItems.size())
        detailItems[index] = detail;
    else
        detailItems.push_back(detail);
    return true;
}

bool CMessageContext::SetDetails(const std::vector<CDataItem>& details) {
    detailItems.assign(details.begin(), details.end());
    return true;
}

void CMessageContext::AddThreadContext() {
    AddContext(new CThreadContext());
}

} // namespace qzlib
} // namespace qzs
