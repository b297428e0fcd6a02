/// @file schema.h
/// Dirty flags on the properties of objects that are described by a schema.
///
///     ObjectSchema_T alarm;                       // properties "id" and "ack",
///     ...                                         // "ack" with a sub-schema "user"
///     __SetDirty(alarm, "id;ack.user");           // a request touched these
///     if (__IsDirty(alarm, "ack.user")) { ... }
///
/// Thread safety: none; a schema belongs to one thread at a time.
#pragma once

#include <map>
#include <string>
#include <vector>

#include <bundlemgr/export.h>

class ObjectSchema_T;

/// One named property of an object.
class ZO_EXPORT Property_T {
public:
    Property_T();
    /// Copies everything, the sub-schema included.
    /// @param other the property to copy
    Property_T(const Property_T& other);
    Property_T& operator=(const Property_T& other);
    /// Takes the sub-schema over, at the address where it is.
    /// @param other has no sub-schema then
    Property_T(Property_T&& other) noexcept;
    Property_T& operator=(Property_T&& other) noexcept;
    /// Deletes the sub-schema.
    virtual ~Property_T();

    std::string name;                ///< Compared exactly, case-sensitive.
    bool dirty;                      ///< The property was changed; false at first.
    bool indexed;                    ///< The value is a list whose elements have integer indices.
    std::map<int, bool> indexDirty;  ///< Marked elements, by index.
    ObjectSchema_T* subSchema;       ///< Attributes of a structured property, or null; owned.
};

/// The description of an object: its properties in order of declaration.
class ZO_EXPORT ObjectSchema_T {
public:
    ObjectSchema_T();
    ObjectSchema_T(const ObjectSchema_T& other);
    ObjectSchema_T& operator=(const ObjectSchema_T& other);
    ObjectSchema_T(ObjectSchema_T&& other) noexcept;
    ObjectSchema_T& operator=(ObjectSchema_T&& other) noexcept;
    virtual ~ObjectSchema_T();

    /// Deletes all properties and their sub-schemas; the name stays.
    virtual void Clear();

    std::string name;                    ///< Of the schema; for its owner alone.
    std::vector<Property_T> properties;  ///< In order of declaration.
};

/// Marks properties as dirty.
///
/// A path names a property, a property of its sub-schema, and so on: "a.b.c". The
/// whole chain is marked. An indexed property inside a path also marks elements: its
/// own name is read as an index ("3") or as an inclusive range ("2-4").
///
/// @param schema the schema to mark
/// @param spec   paths separated by ";"; white space around each is ignored; null
///               counts as empty
/// @return true when every path resolved (or there was none); otherwise false, and
///         no property is marked, though elements named before the failure are
/// @note An index range marks every element in it, one map entry each: a property
///       that is named "0-2000000000" costs two billion entries (about 100 GB) for
///       each use. The names come from whoever built the schema; bound them there.
ZO_EXPORT bool __SetDirty(ObjectSchema_T& schema, const char* spec);

/// @param schema the schema to ask
/// @param path   one path as in `__SetDirty`; white space around it is ignored; null
///               counts as empty
/// @return whether the property at `path`, every property on the way to it, and the
///         elements that the path names, are marked
ZO_EXPORT bool __IsDirty(const ObjectSchema_T& schema, const char* path);

/// Prints the flags of the whole tree on standard output, a line a property,
/// indented by its depth.
/// @param schema the schema to print
ZO_EXPORT void __PrintSchemaDirty(const ObjectSchema_T& schema);
