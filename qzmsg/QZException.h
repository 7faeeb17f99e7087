//===- qzmsg/QZException.h - A message thrown as an exception --*- C++ -*-===//
//
// What the ThrowException action throws, and what the JSON paths throw when
// asked to report: the message's text, number and code.
//
//===----------------------------------------------------------------------===//
#ifndef QZMSG_QZEXCEPTION_H
#define QZMSG_QZEXCEPTION_H

#include "qzstd/Export.h"

#include <exception>
#include <string>

namespace qzs {
namespace qzlib {
namespace qzlog {

/// A catalogue message as an exception. what() is the formatted text.
class QZ_API QZException : public virtual std::exception {
public:
    QZException(const std::string& text, unsigned int messageId, char const* messageCode);
    QZException(const QZException& other);
    QZException& operator=(const QZException& other);
    ~QZException() override;

    char const* what() const noexcept override { return text.c_str(); }
    unsigned int GetMessageID() const { return messageId; }
    /// "XQZ-" and five digits.
    char const* GetMessageCode() const { return messageCode; }

private:
    std::string text;
    unsigned int messageId;
    char messageCode[10];
};

} // namespace qzlog
} // namespace qzlib
} // namespace qzs

#endif // QZMSG_QZEXCEPTION_H
