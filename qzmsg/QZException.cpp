//===- qzmsg/QZException.cpp - A message thrown as an exception -----------===//
#include "qzmsg/QZException.h"

#include <cstring>

namespace qzs {
namespace qzlib {
namespace qzlog {

QZException::QZException(const std::string& messageText, unsigned int id, char const* code)
    : text(messageText), messageId(id), messageCode() {
    if (code)
        std::strncpy(messageCode, code, sizeof messageCode - 1);
}

QZException::QZException(const QZException& other)
    : std::exception(other), text(other.text), messageId(other.messageId), messageCode() {
    std::memcpy(messageCode, other.messageCode, sizeof messageCode);
}

QZException& QZException::operator=(const QZException& other) {
    if (this != &other) {
        text = other.text;
        messageId = other.messageId;
        std::memcpy(messageCode, other.messageCode, sizeof messageCode);
    }
    return *this;
}

QZException::~QZException() {}

} // namespace qzlog
} // namespace qzlib
} // namespace qzs
