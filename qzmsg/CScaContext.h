//===- qzmsg/CScaContext.h - The service deployment ------------*- C++ -*-===//
//
// Which deployment, service and service manager this process belongs to,
// from the environment, or made up when the environment does not say.
//
//===----------------------------------------------------------------------===//
#ifndef QZMSG_CSCACONTEXT_H
#define QZMSG_CSCACONTEXT_H

#include "qzmsg/CContext.h"

#include <string>

namespace qzs {
namespace qzlib {

/// ScaDeploymentName (XQZ_DEPLOYMENT_NAME, else "Unknown"), ScaDeploymentId
/// (XQZ_DEPLOYMENT_ID), ScaServiceId (XQZ_SERVICE_ID) and ScaServiceManagerId
/// (XQZ_SERVICEMANAGER_ID), each of the last three a new random UUID when its
/// variable is not set, so that without the environment they differ from one
/// process to the next. A failure of the system's random source throws the
/// UUID library's entropy error, which is not caught here.
class QZ_API CScaContext : public CContext {
public:
    CScaContext();

    /// Adds an owned string item: the variable's value when it is set (even
    /// empty), else what `fallback` gives.
    void AddItem(ContextItemID id, char const* variable, std::string (*fallback)());
    using CContext::AddItem;

    /// A version 4 UUID as 36 lower-case characters, 8-4-4-4-12.
    static std::string randomUuid();
};

} // namespace qzlib
} // namespace qzs

#endif // QZMSG_CSCACONTEXT_H
