//===- qzmsg/CAction.cpp - What a severity does ---------------------------===//
//
// The first steps: printing a message and keeping it in the thread's error
// context. The rest of the action table follows.
//
//===----------------------------------------------------------------------===//
#include "qzmsg/CAction.h"

#include "qzmsg/CErrorContext.h"
#include "qzmsg/CMessage.h"
#include "qzstd/CDataItem.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace qzs {
namespace qzlib {

CAction::CAction()
    : name(nullptr), customName(nullptr), handler(nullptr), customFunction(nullptr), attribute(4) {}

CAction::CAction(char const* custom, CustomFunction function)
    : name(nullptr), customName(SafeStrdup(custom ? custom : "")), handler(nullptr),
      customFunction(function), attribute(4) {}

CAction::~CAction() {
    std::free(name);
    std::free(customName);
}

bool CAction::Load(char const* actionName, char const* custom) {
    std::free(name);
    name = SafeStrdup(actionName ? actionName : "");
    if (custom) {
        std::free(customName);
        customName = SafeStrdup(custom);
        return false;
    }
    if (std::strcmp(name, "Report") == 0)
        handler = &CAction::Report;
    else if (std::strcmp(name, "StoreMessage") == 0)
        handler = &CAction::StoreMessage;
    else
        return false;
    return true;
}

bool CAction::Execute(CMessage const* message) const {
    if (handler)
        return (this->*handler)(message);
    if (!customFunction)
        return true;
    char* block = message->CreateCustomActionMessage(FactoryCharSet);
    const bool result = customFunction(block);
    delete[] block;
    return result;
}

bool CAction::Report(CMessage const* message) const {
    char code[10];
    message->GetMessageCode(code);
    char const* text = message->Format(FactoryCharSet);
    std::printf("%s: %s\n", code, text ? text : "Formatting error");
    return true;
}

bool CAction::StoreMessage(CMessage const* message) const {
    if (CMessageFactory* factory = CMessageFactory::GetDefaultFactory())
        if (CMessage* copy = factory->CreateMessage(message))
            CErrorContext::GetContext()->storedMessages.push_back(copy);
    return true;
}

} // namespace qzlib
} // namespace qzs
