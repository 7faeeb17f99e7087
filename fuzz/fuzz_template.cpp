//===- fuzz/fuzz_template.cpp - Message templates and their details -------===//
//
// A libFuzzer target for the formatting of a message: the input is an ICU
// MessageFormat pattern (UTF-8) and the details to fill it, each a kind byte
// (the item's type, or a hexadecimal format 1-5 on bit 7) and its bytes. A
// template is built by hand and the message formatted, as an action would;
// an ICU error gives "", never a crash.
//
// Input: pattern NUL, then details until the input ends.
//
//===----------------------------------------------------------------------===//
#include "qzmsg/CMessage.h"
#include "qzmsg/CMessageContext.h"
#include "qzmsg/CMessageFactory.h"
#include "qzmsg/CMessageTemplate.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <sys/time.h>
#include <vector>

using namespace qzs::qzlib;

namespace {

template <typename T> T take(const uint8_t*& at, const uint8_t* end) {
    T value{};
    const size_t n = std::min(sizeof value, static_cast<size_t>(end - at));
    std::memcpy(&value, at, n);
    at += n;
    return value;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const uint8_t* end = data + size;
    const uint8_t* nul = static_cast<const uint8_t*>(std::memchr(data, 0, size));
    const uint8_t* at = nul ? nul + 1 : end;
    CMessageTemplate messageTemplate(90000);
    messageTemplate.text = icu::UnicodeString::fromUTF8(icu::StringPiece(
        reinterpret_cast<const char*>(data), static_cast<int32_t>((nul ? nul : end) - data)));
    CMessage message(icu::Locale::getRoot());
    message.factory = CMessageFactory::GetDefaultFactory();
    message.messageTemplate = &messageTemplate;
    message.context = new CMessageContext(nullptr);
    std::vector<std::string> texts;
    texts.reserve(32); // the details borrow these texts: no reallocation
    for (unsigned int index = 0; at < end && index < 32; ++index) {
        const uint8_t kind = *at++;
        CMessageDetail detail;
        detail.SetKind(kind & 0x0F);
        detail.format = kind & 0x80 ? (kind >> 4) & 0x07 : 0;
        messageTemplate.details.push_back(detail);
        switch (kind & 0x0F) {
        case 0: {
            const uint8_t length = take<uint8_t>(at, end);
            const size_t n = std::min<size_t>(length, static_cast<size_t>(end - at));
            texts.emplace_back(reinterpret_cast<const char*>(at), n);
            at += n;
            message.SetDetail(index, CDataItem(texts.back().c_str()));
            break;
        }
        case 1:
            message.SetDetail(index, CDataItem(take<int>(at, end)));
            break;
        case 2:
            message.SetDetail(index, CDataItem(take<unsigned int>(at, end)));
            break;
        case 3:
            message.SetDetail(index, CDataItem(take<long>(at, end)));
            break;
        case 4:
            message.SetDetail(index, CDataItem(take<unsigned long>(at, end)));
            break;
        case 5:
            message.SetDetail(index, CDataItem(take<uint8_t>(at, end) != 0));
            break;
        case 6: {
            timeval t{take<int32_t>(at, end), take<int32_t>(at, end) % 1000000};
            message.SetDetail(index, CDataItem(t));
            break;
        }
        default:
            message.SetDetail(index,
                              CDataItem(reinterpret_cast<const void*>(take<uintptr_t>(at, end))));
            break;
        }
    }
    message.Format(FactoryCharSet);
    return 0;
}
