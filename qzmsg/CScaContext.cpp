//===- qzmsg/CScaContext.cpp - The service deployment ---------------------===//
#include "qzmsg/CScaContext.h"

#include <boost/uuid/random_generator.hpp>
#include <boost/uuid/uuid_io.hpp>

#include <cstdlib>
#include <cstring>

namespace qzs {
namespace qzlib {

namespace {
std::string unknownDeployment() {
    return "Unknown";
}
} // namespace

CScaContext::CScaContext() {
    AddItem(GetContextItemID("ScaDeploymentName"), "XQZ_DEPLOYMENT_NAME", &unknownDeployment);
    AddItem(GetContextItemID("ScaDeploymentId"), "XQZ_DEPLOYMENT_ID", &randomUuid);
    AddItem(GetContextItemID("ScaServiceId"), "XQZ_SERVICE_ID", &randomUuid);
    AddItem(GetContextItemID("ScaServiceManagerId"), "XQZ_SERVICEMANAGER_ID", &randomUuid);
}

void CScaContext::AddItem(ContextItemID id, char const* variable, std::string (*fallback)()) {
    char const* value = std::getenv(variable);
    const std::string text = value ? std::string(value) : fallback();
    CContext::AddItem(new CContextItem(id, ::strdup(text.c_str()), true));
}

std::string CScaContext::randomUuid() {
    // The generator reads the system's random source (getrandom or
    // /dev/urandom) and throws boost::uuids::entropy_error when it cannot.
    boost::uuids::random_generator generate;
    return boost::uuids::to_string(generate());
}

} // namespace qzlib
} // namespace qzs
