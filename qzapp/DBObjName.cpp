//===- qzapp/DBObjName.cpp - Typed database object names ------------------===//
#include "qzapp/DBObjName.h"

#include <atomic>
#include <cstdint>
#include <utility>

namespace qzs {
namespace qzlib {
namespace qzapp {

using qzunicode::ULibCharSet;
using qzunicode::UString;

#define QZ_HIDDEN __attribute__((visibility("hidden")))

namespace {

constexpr ULibCharSet kUTF8 = ULibCharSet(0);

// The text of a name in one byte set. A UString's c_str in a new set replaces
// its body, which sharers on other threads must never see; so each set gets
// its own copy of the text, converted before it is published and never
// touched after, and its bytes stay put for the life of the name.
struct ByteForm {
    ByteForm(ULibCharSet set, const UString& of) : cs(set), text(of), bytes(text.c_str(set)) {}
    ULibCharSet cs;
    UString text;
    const char* bytes;
    ByteForm* next = nullptr;
};

const char* bytesIn(const UString& text, std::atomic<ByteForm*>& forms, ULibCharSet cs) {
    ByteForm* head = forms.load(std::memory_order_acquire);
    for (ByteForm* f = head; f != nullptr; f = f->next)
        if (f->cs == cs)
            return f->bytes;
    ByteForm* mine = new ByteForm(cs, text);
    for (;;) {
        mine->next = head;
        if (forms.compare_exchange_weak(head, mine, std::memory_order_release,
                                        std::memory_order_acquire))
            return mine->bytes;
        // Another sharer published first; it may have converted this set.
        for (ByteForm* f = head; f != mine->next; f = f->next)
            if (f->cs == cs) {
                delete mine;
                return f->bytes;
            }
    }
}

// What c_str gives for the empty name: zero bytes enough to terminate a
// string of any set.
const std::uint64_t kNoBytes = 0;

// A private copy converts, so the caller's string keeps its body.
std::string defaultBytes(const UString& text) {
    UString copy(text);
    const char* bytes = copy.c_str(qzunicode::ULIB_CS_DEFAULT);
    return std::string(bytes, copy.byteSize(qzunicode::ULIB_CS_DEFAULT));
}

bool isAll(const UString& name) {
    return name.length() == 4 && name.compareNoCase(0, "*ALL", kUTF8) == 0;
}

void appendPart(UString& out, const UString& part, const char* separator) {
    if (part.empty())
        return;
    if (!out.empty())
        out.append(separator, kUTF8);
    out.append(part);
}

// parts: the qualifiers outermost first, then the object (not empty).
UString assemble(const UString (&parts)[4], int form) {
    UString out;
    const char* separator = form == QUALNAME_SQL ? "." : "/";
    const int joined = form == QUALNAME_NATIVE_MEMBER ? 3 : 4;
    for (int i = 0; i < joined; ++i)
        appendPart(out, parts[i], separator);
    if (form == QUALNAME_NATIVE_MEMBER) {
        out.append("(", kUTF8);
        out.append(parts[3]);
        out.append(")", kUTF8);
    }
    return out;
}

} // namespace

// CDBObjName ------------------------------------------------------------------

// Hidden: nested classes take the export of the class around them.
template <DBObjType T> class QZ_HIDDEN CDBObjName<T>::nameImpl {
public:
    explicit nameImpl(const UString& text) : m_nRefCount(1), m_oText(text), m_poForms(nullptr) {}
    nameImpl(const nameImpl&) = delete;
    nameImpl& operator=(const nameImpl&) = delete;
    ~nameImpl() {
        for (ByteForm* f = m_poForms.load(std::memory_order_relaxed); f != nullptr;) {
            ByteForm* next = f->next;
            delete f;
            f = next;
        }
    }

    nameImpl* incRef() {
        m_nRefCount.fetch_add(1, std::memory_order_relaxed);
        return this;
    }
    void decRef() {
        if (m_nRefCount.fetch_sub(1, std::memory_order_acq_rel) == 1)
            delete this;
    }

    std::atomic<std::int32_t> m_nRefCount;
    const UString m_oText;
    std::atomic<ByteForm*> m_poForms;
};

template <DBObjType T>
CDBObjName<T>::CDBObjName(const UString& name)
    : m_poImpl(name.empty() ? nullptr : new nameImpl(name)) {}

// Measured by the string: a zero first byte ends a name only in some sets.
template <DBObjType T>
CDBObjName<T>::CDBObjName(const char* name, ULibCharSet cs) : CDBObjName(UString(name, cs)) {}

template <DBObjType T>
CDBObjName<T>::CDBObjName(const CDBObjName& other) noexcept
    : m_poImpl(other.m_poImpl != nullptr ? other.m_poImpl->incRef() : nullptr) {}

template <DBObjType T>
CDBObjName<T>::CDBObjName(CDBObjName&& other) noexcept : m_poImpl(other.m_poImpl) {
    other.m_poImpl = nullptr;
}

template <DBObjType T> CDBObjName<T>& CDBObjName<T>::operator=(const CDBObjName& other) noexcept {
    // Taken before the old one goes: other may share it, or be this name.
    nameImpl* taken = other.m_poImpl != nullptr ? other.m_poImpl->incRef() : nullptr;
    if (m_poImpl != nullptr)
        m_poImpl->decRef();
    m_poImpl = taken;
    return *this;
}

template <DBObjType T> CDBObjName<T>& CDBObjName<T>::operator=(CDBObjName&& other) noexcept {
    std::swap(m_poImpl, other.m_poImpl);
    return *this;
}

template <DBObjType T> CDBObjName<T>::~CDBObjName() {
    if (m_poImpl != nullptr)
        m_poImpl->decRef();
}

template <DBObjType T> UString CDBObjName<T>::getName() const {
    return m_poImpl != nullptr ? m_poImpl->m_oText : UString();
}

template <DBObjType T> const char* CDBObjName<T>::c_str(ULibCharSet cs) const {
    if (m_poImpl == nullptr)
        return reinterpret_cast<const char*>(&kNoBytes);
    return bytesIn(m_poImpl->m_oText, m_poImpl->m_poForms, cs);
}

template <DBObjType T> bool CDBObjName<T>::operator==(const CDBObjName& other) const {
    if (m_poImpl == other.m_poImpl)
        return true;
    if (m_poImpl == nullptr || other.m_poImpl == nullptr)
        return false;
    return m_poImpl->m_oText == other.m_poImpl->m_oText;
}

template <DBObjType T> bool CDBObjName<T>::operator<(const CDBObjName& other) const {
    if (other.m_poImpl == nullptr || m_poImpl == other.m_poImpl)
        return false;
    if (m_poImpl == nullptr)
        return true;
    return m_poImpl->m_oText < other.m_poImpl->m_oText;
}

// CQualDBObjName --------------------------------------------------------------

template <DBObjType T> class QZ_HIDDEN CQualDBObjName<T>::qualNameImpl {
public:
    qualNameImpl() = default;
    qualNameImpl(const qualNameImpl& from)
        : m_oQualifier{from.m_oQualifier[0], from.m_oQualifier[1], from.m_oQualifier[2]},
          m_oObject(from.m_oObject), m_nForm(from.m_nForm) {}
    qualNameImpl& operator=(const qualNameImpl&) = delete;
    ~qualNameImpl() { delete m_poQualName.load(std::memory_order_relaxed); }

    qualNameImpl* incRef() {
        m_nRefCount.fetch_add(1, std::memory_order_relaxed);
        return this;
    }
    void decRef() {
        if (m_nRefCount.fetch_sub(1, std::memory_order_acq_rel) == 1)
            delete this;
    }
    bool shared() const { return m_nRefCount.load(std::memory_order_acquire) > 1; }

    // Only on a body this object alone holds.
    void clearCache() { delete m_poQualName.exchange(nullptr, std::memory_order_relaxed); }

    UString makeQualName() const {
        if (m_oObject.empty())
            return m_oObject.getName();
        if (const UString* cached = m_poQualName.load(std::memory_order_acquire))
            return *cached;
        const UString parts[4] = {m_oQualifier[0].getName(), m_oQualifier[1].getName(),
                                  m_oQualifier[2].getName(), m_oObject.getName()};
        UString* built = new UString(assemble(parts, m_nForm));
        // Sharers on other threads may build it at once; the first one kept
        // is everybody's.
        UString* expected = nullptr;
        if (!m_poQualName.compare_exchange_strong(expected, built, std::memory_order_acq_rel,
                                                  std::memory_order_acquire)) {
            delete built;
            return *expected;
        }
        return *built;
    }

    std::atomic<std::int32_t> m_nRefCount{1};
    Qualifier m_oQualifier[numQualifiers];
    CDBObjName<T> m_oObject;
    int m_nForm = QUALNAME_SQL;
    mutable std::atomic<UString*> m_poQualName{nullptr};
};

template <DBObjType T>
CQualDBObjName<T>::CQualDBObjName(const CDBObjName<T>& object, int form)
    : m_poImpl(new qualNameImpl) {
    m_poImpl->m_oObject = object;
    m_poImpl->m_nForm = form;
}

template <DBObjType T>
CQualDBObjName<T>::CQualDBObjName(const Qualifier& q0, const Qualifier& q1, const Qualifier& q2,
                                  const CDBObjName<T>& object, int form)
    : CQualDBObjName(object, form) {
    m_poImpl->m_oQualifier[0] = q0;
    m_poImpl->m_oQualifier[1] = q1;
    m_poImpl->m_oQualifier[2] = q2;
}

template <DBObjType T>
CQualDBObjName<T>::CQualDBObjName(const CQualDBObjName& other) noexcept
    : m_poImpl(other.m_poImpl != nullptr ? other.m_poImpl->incRef() : nullptr) {}

template <DBObjType T>
CQualDBObjName<T>::CQualDBObjName(CQualDBObjName&& other) noexcept : m_poImpl(other.m_poImpl) {
    other.m_poImpl = nullptr;
}

template <DBObjType T>
CQualDBObjName<T>& CQualDBObjName<T>::operator=(const CQualDBObjName& other) noexcept {
    qualNameImpl* taken = other.m_poImpl != nullptr ? other.m_poImpl->incRef() : nullptr;
    if (m_poImpl != nullptr)
        m_poImpl->decRef();
    m_poImpl = taken;
    return *this;
}

template <DBObjType T>
CQualDBObjName<T>& CQualDBObjName<T>::operator=(CQualDBObjName&& other) noexcept {
    std::swap(m_poImpl, other.m_poImpl);
    return *this;
}

template <DBObjType T> CQualDBObjName<T>::~CQualDBObjName() {
    if (m_poImpl != nullptr)
        m_poImpl->decRef();
}

template <DBObjType T> typename CQualDBObjName<T>::qualNameImpl* CQualDBObjName<T>::alterable() {
    if (m_poImpl == nullptr) {
        m_poImpl = new qualNameImpl;
    } else if (m_poImpl->shared()) {
        qualNameImpl* own = new qualNameImpl(*m_poImpl);
        m_poImpl->decRef();
        m_poImpl = own;
    } else {
        m_poImpl->clearCache();
    }
    return m_poImpl;
}

template <DBObjType T> bool CQualDBObjName<T>::empty() const {
    return m_poImpl == nullptr || m_poImpl->m_oObject.empty();
}

template <DBObjType T>
typename CQualDBObjName<T>::Qualifier CQualDBObjName<T>::getQualifier(int index) const {
    return m_poImpl != nullptr ? m_poImpl->m_oQualifier[index] : Qualifier();
}

template <DBObjType T> CDBObjName<T> CQualDBObjName<T>::getObject() const {
    return m_poImpl != nullptr ? m_poImpl->m_oObject : CDBObjName<T>();
}

template <DBObjType T> int CQualDBObjName<T>::getForm() const {
    return m_poImpl != nullptr ? m_poImpl->m_nForm : int(QUALNAME_SQL);
}

template <DBObjType T> void CQualDBObjName<T>::setQualifier(int index, const Qualifier& part) {
    alterable()->m_oQualifier[index] = part;
}

template <DBObjType T> void CQualDBObjName<T>::setObject(const CDBObjName<T>& object) {
    alterable()->m_oObject = object;
}

template <DBObjType T> void CQualDBObjName<T>::setForm(int form) {
    alterable()->m_nForm = form;
}

template <DBObjType T> UString CQualDBObjName<T>::getQualName() const {
    return m_poImpl != nullptr ? m_poImpl->makeQualName() : UString();
}

// enquote ---------------------------------------------------------------------

template <DBObjType T> std::string enquote(const CDBObjName<T>& name) {
    return defaultBytes(name.getName());
}

template <DBObjType T> std::string enquote(const CQualDBObjName<T>& name) {
    return defaultBytes(name.getQualName());
}

QZAPP_DBOBJNAME_ALL_INSTANCES(, )

// CI5NativeName ---------------------------------------------------------------

bool CI5NativeName::isValidName(const UString& name, DBObjType) {
    const std::size_t length = name.length();
    if (length >= 11 || name.find('?', 0, kUTF8) != UString::npos)
        return false;
    const std::size_t star = name.find('*', 0, kUTF8);
    if (star == UString::npos)
        return true;
    if (star == 0)
        return isAll(name);
    return star == length - 1;
}

UString CI5NativeName::toSQLWCName(const UString& name) {
    return isAll(name) ? UString("*", kUTF8) : name;
}

UString CI5NativeName::fromSQLWCName(const UString& name) {
    return name.compare(0, "*", kUTF8) == 0 ? UString("*ALL", kUTF8) : name;
}

UString CI5NativeName::toSQLName(const UString& library, const UString& file,
                                 const UString& member) {
    UString out;
    appendPart(out, toSQLWCName(library), ".");
    appendPart(out, toSQLWCName(file), ".");
    if (!member.empty()) {
        out.append("(", kUTF8);
        out.append(toSQLWCName(member));
        out.append(")", kUTF8);
    }
    return out;
}

} // namespace qzapp
} // namespace qzlib
} // namespace qzs
