//===- qzapp/DBObjName.h - Typed database object names ---------*- C++ -*-===//
//
// A database object name carries its kind in its type, so that a table name
// cannot go where a schema name is expected, and costs one pointer: copies
// share one counted text. CQualDBObjName adds the qualifiers and the text of
// the whole name in a chosen form; CI5NativeName checks and converts the
// native names of IBM i.
//
//===----------------------------------------------------------------------===//
#ifndef QZAPP_DBOBJNAME_H
#define QZAPP_DBOBJNAME_H

#include "qzstd/Export.h"

#include "qzunicode/CharSetTable.h"
#include "qzunicode/UString.h"

#include <string>

namespace qzs {
namespace qzlib {
namespace qzapp {

/// The kind of a database object, fixed in the type of its name. The numbers
/// are stored and passed between processes: never renumber. 5, 9, 15 and 16
/// have name types too (CDBObjName<DBObjType(5)>), with no meaning given yet.
enum DBObjType : int {
    DBOBJ_OBJECT = 0, ///< any object, when its kind does not matter
    DBOBJ_TABLE = 1,
    DBOBJ_SCHEMA = 7,
    DBOBJ_CATALOG = 8,
    DBOBJ_LOGIN = 11,
    DBOBJ_COLUMN = 13,
};

/// The name of one database object of kind T, as the database spells it
/// (no case folding, no quotes added or removed).
///
/// Copies share one immutable, counted text (nameImpl); nothing changes a
/// text once made, so a name changes only by assignment. The empty name
/// holds no text at all and allocates nothing.
///
/// Thread safety: copies of one name may be used on different threads at
/// once, c_str included (the count is atomic, the text is never written, and
/// the bytes of each set are converted once and kept). One CDBObjName object
/// is not safe against its own assignment on another thread.
///
/// Only the kinds listed above are instantiated in the library; a name of
/// another kind does not link.
template <DBObjType T> class CDBObjName {
public:
    class nameImpl;

    CDBObjName() noexcept : m_poImpl(nullptr) {}
    explicit CDBObjName(qzunicode::UString const& name);
    /// name, up to its terminator, in cs. Null or "" give the empty name.
    explicit CDBObjName(char const* name, qzunicode::ULibCharSet cs = qzunicode::ULIB_CS_DEFAULT);
    CDBObjName(CDBObjName const& other) noexcept;
    /// Leaves other empty.
    CDBObjName(CDBObjName&& other) noexcept;
    CDBObjName& operator=(CDBObjName const& other) noexcept;
    CDBObjName& operator=(CDBObjName&& other) noexcept;
    ~CDBObjName();

    bool empty() const noexcept { return m_poImpl == nullptr; }
    /// The text. By value: a copy sharing the body, so that what a caller
    /// does with it (c_str in a new set counts as a write) cannot disturb the
    /// other sharers of this name.
    qzunicode::UString getName() const;
    qzunicode::UString str() const { return getName(); }
    /// The text in cs, terminated for cs; characters cs cannot hold are
    /// substituted. The pointer stays valid while any copy of this name
    /// lives, and each set is converted once per text (ULIB_CS_DEFAULT as
    /// the default was then). Bytes given in cs come back as they were
    /// given. The empty name gives zero bytes.
    char const* c_str(qzunicode::ULibCharSet cs = qzunicode::ULIB_CS_DEFAULT) const;

    /// By UTF-16 units, as UString compares; the empty name sorts first.
    bool operator==(CDBObjName const& other) const;
    bool operator!=(CDBObjName const& other) const { return !(*this == other); }
    bool operator<(CDBObjName const& other) const;

private:
    nameImpl* m_poImpl;
};

/// The text forms of a qualified name (CQualDBObjName::getQualName). Empty
/// parts are left out of every form, qualifiers and their separators alike.
enum QualNameForm : int {
    /// SQL: the parts joined by ".", outermost first: "CAT.SCHEMA.TABLE".
    QUALNAME_SQL = 0,
    /// IBM i native member: the qualifiers joined by "/", then the object
    /// part, which names the member, in parentheses: "LIB/FILE(MBR)"; with
    /// no qualifier, "(MBR)".
    QUALNAME_NATIVE_MEMBER = 1,
    /// IBM i native path: the parts joined by "/": "LIB/FILE",
    /// "123456/USER/JOB". Every other non-zero number is this form too.
    QUALNAME_NATIVE = 2,
};

/// A name of kind T with up to three qualifiers, outermost first (for
/// example catalog, then schema; or, for an IBM i member, library, then file
/// with the member as the object part), a form number and the text of the
/// whole name in that form.
///
/// Copies share one body (qualNameImpl); a change first makes this object's
/// own body when it is shared (copy on change), and clears the cached text.
/// The qualifiers are untyped (DBOBJ_OBJECT): what each one is depends on
/// the database and the form.
///
/// getQualName is built at the first call and cached in the body:
/// - an empty object part gives the empty text, whatever the qualifiers;
/// - otherwise the parts are laid out as QualNameForm says, empty parts
///   left out. Kept on purpose: a missing middle qualifier closes up, so
///   catalog "C", no schema, table "T" is "C.T" (not "C..T").
///
/// Thread safety: as CDBObjName; the cache is published atomically, so
/// copies may build it on different threads at once.
template <DBObjType T> class CQualDBObjName {
public:
    class qualNameImpl;
    using Qualifier = CDBObjName<DBOBJ_OBJECT>;
    enum { numQualifiers = 3 };

    CQualDBObjName() noexcept : m_poImpl(nullptr) {}
    explicit CQualDBObjName(CDBObjName<T> const& object, int form = QUALNAME_SQL);
    CQualDBObjName(Qualifier const& q0, Qualifier const& q1, Qualifier const& q2,
                   CDBObjName<T> const& object, int form = QUALNAME_SQL);
    CQualDBObjName(CQualDBObjName const& other) noexcept;
    CQualDBObjName(CQualDBObjName&& other) noexcept;
    CQualDBObjName& operator=(CQualDBObjName const& other) noexcept;
    CQualDBObjName& operator=(CQualDBObjName&& other) noexcept;
    ~CQualDBObjName();

    /// True when the object part is empty.
    bool empty() const;
    /// REQUIRES: 0 <= index < numQualifiers.
    Qualifier getQualifier(int index) const;
    CDBObjName<T> getObject() const;
    int getForm() const;
    /// REQUIRES: 0 <= index < numQualifiers.
    void setQualifier(int index, Qualifier const& part);
    void setObject(CDBObjName<T> const& object);
    void setForm(int form);

    /// The whole name in its form (makeQualName); a copy sharing the cache.
    qzunicode::UString getQualName() const;

private:
    qualNameImpl* alterable();

    qualNameImpl* m_poImpl;
};

/// The text of a name, or of a qualified name in its form, as the catalogue
/// messages take their arguments: in the set ULIB_CS_DEFAULT (0x40000000)
/// stands for, the set catalogue messages are converted to. That is the process
/// default, not US-ASCII as such: UTF-8 where ICU is built for UTF-8 only
/// (Debian's is), so "é" arrives as its two UTF-8 bytes. Where the default
/// is US-ASCII, characters it cannot hold become the thread's substitution
/// (U+001A by default, byte 0x1A). Bytes given in ULIB_CS_DEFAULT itself
/// come back exactly as given, unchecked.
///
/// Kept on purpose: despite the name, nothing is quoted or escaped; quote
/// characters in the name pass through as they are.
template <DBObjType T> QZ_API std::string enquote(CDBObjName<T> const& name);
template <DBObjType T> QZ_API std::string enquote(CQualDBObjName<T> const& name);

/// The names of the kinds the messages take.
using CObjectName = CDBObjName<DBOBJ_OBJECT>;
using CTableName = CDBObjName<DBOBJ_TABLE>;
using CSchemaName = CDBObjName<DBOBJ_SCHEMA>;
using CCatalogName = CDBObjName<DBOBJ_CATALOG>;
using CLoginName = CDBObjName<DBOBJ_LOGIN>;
using CColumnName = CDBObjName<DBOBJ_COLUMN>;
using CQualObjectName = CQualDBObjName<DBOBJ_OBJECT>;
using CQualTableName = CQualDBObjName<DBOBJ_TABLE>;

/// Native object names of IBM i: at most 10 characters, a generic name
/// "ABC*", or the special value "*ALL", which SQL catalogue queries write
/// as the wildcard "*". Lengths count UTF-16 units. All functions are pure.
class QZ_API CI5NativeName {
public:
    /// False for 11 characters or more, or a "?" anywhere. Otherwise true
    /// without a "*"; a "*" after the first character must be the last one
    /// ("ABC*"); a "*" first is valid only in "*ALL", in any case. The kind
    /// does not change these rules; the empty name passes (callers check
    /// emptiness where it matters).
    static bool isValidName(qzunicode::UString const& name, DBObjType type);
    /// A copy, with "*ALL" in any case as "*".
    static qzunicode::UString toSQLWCName(qzunicode::UString const& name);
    /// A copy, with "*" as "*ALL".
    static qzunicode::UString fromSQLWCName(qzunicode::UString const& name);
    /// The native LIB/FILE(MBR) as SQL writes it: "LIB.FILE", then "(MBR)"
    /// when a member is given, as in CREATE ALIAS ... FOR LIB.FILE(MBR).
    /// Each part goes through toSQLWCName ("*ALL" library: "*.FILE"); an
    /// empty library or file is left out with its separator. Other special
    /// values (*LIBL, *FIRST) pass through unchanged.
    static qzunicode::UString toSQLName(qzunicode::UString const& library,
                                        qzunicode::UString const& file,
                                        qzunicode::UString const& member);
};

// The library holds the only instances, so that their symbols stay put. The
// export attribute goes on these declarations, the first of each instance;
// the library's definitions repeat them without it (GCC ignores an attribute
// on a class that is already defined). Marking the templates themselves
// would also export what a host instantiates for itself.
#define QZAPP_DBOBJNAME_INSTANCES(EXTERN, API, T)                                                  \
    EXTERN template class API CDBObjName<T>;                                                       \
    EXTERN template class API CQualDBObjName<T>;                                                   \
    EXTERN template API std::string enquote<T>(CDBObjName<T> const&);                              \
    EXTERN template API std::string enquote<T>(CQualDBObjName<T> const&);
#define QZAPP_DBOBJNAME_ALL_INSTANCES(EXTERN, API)                                                 \
    QZAPP_DBOBJNAME_INSTANCES(EXTERN, API, DBOBJ_OBJECT)                                           \
    QZAPP_DBOBJNAME_INSTANCES(EXTERN, API, DBOBJ_TABLE)                                            \
    QZAPP_DBOBJNAME_INSTANCES(EXTERN, API, DBObjType(5))                                           \
    QZAPP_DBOBJNAME_INSTANCES(EXTERN, API, DBOBJ_SCHEMA)                                           \
    QZAPP_DBOBJNAME_INSTANCES(EXTERN, API, DBOBJ_CATALOG)                                          \
    QZAPP_DBOBJNAME_INSTANCES(EXTERN, API, DBObjType(9))                                           \
    QZAPP_DBOBJNAME_INSTANCES(EXTERN, API, DBOBJ_LOGIN)                                            \
    QZAPP_DBOBJNAME_INSTANCES(EXTERN, API, DBOBJ_COLUMN)                                           \
    QZAPP_DBOBJNAME_INSTANCES(EXTERN, API, DBObjType(15))                                          \
    QZAPP_DBOBJNAME_INSTANCES(EXTERN, API, DBObjType(16))

QZAPP_DBOBJNAME_ALL_INSTANCES(extern, QZ_API)

} // namespace qzapp
} // namespace qzlib
} // namespace qzs

#endif // QZAPP_DBOBJNAME_H
