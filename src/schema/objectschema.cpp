#include <bundlemgr/schema.h>

#include <algorithm>
#include <atomic>
#include <climits>
#include <cstdlib>
#include <iterator>
#include <utility>

#include <bundlemgr/base.h>

#include "src/platform/standardoutput.h"

namespace {

using NS_BUNDLEMGR1::PrintOut;
using NS_BUNDLEMGR1::PrintOutText;
using NS_BUNDLEMGR1::Str2StrVec;
using NS_BUNDLEMGR1::Trim;

std::vector<std::string> Split(const std::string& text, char separator) {
    std::vector<std::string> fields;
    Str2StrVec(text.c_str(), separator, fields);
    return fields;
}

/// The number that `text` begins with, 0 where there is none. One that does not fit into an
/// int becomes the int that is nearest to it.
int ToIndex(const std::string& text) {
    const long number = std::strtol(text.c_str(), nullptr, 10);
    return static_cast<int>(std::clamp<long>(number, INT_MIN, INT_MAX));
}

void MarkRange(std::map<int, bool>& marks, int first, int last) {
    auto next = marks.lower_bound(first);
    // Counted in a wider type: an int could not step past a range that ends at INT_MAX.
    for (long long index = first; index <= last; ++index) {
        next = std::next(marks.insert_or_assign(next, static_cast<int>(index), true));
    }
}

/// Marks the elements that `indices` names: "3", or "2-4" for 2, 3 and 4.
/// @return false when it is neither
bool MarkElements(Property_T& property, const std::string& indices) {
    const std::vector<std::string> pieces = Split(indices, '-');
    if (pieces.empty() || pieces.size() > 2) return false;
    MarkRange(property.indexDirty, ToIndex(pieces.front()), ToIndex(pieces.back()));
    return true;
}

/// Walks `path` and appends the properties on it to `matched`, marking elements on
/// the way. The elements come from the segment that names the indexed property.
/// @return whether the path led to its end
bool MatchPath(ObjectSchema_T& schema, const std::string& path, std::vector<Property_T*>& matched) {
    const std::vector<std::string> segments = Split(path, '.');
    ObjectSchema_T* current = &schema;
    for (std::size_t i = 0; i < segments.size(); ++i) {
        if (current == nullptr) return false;
        const auto property = std::find_if(current->properties.begin(), current->properties.end(),
                                           [&](const Property_T& p) { return p.name == segments[i]; });
        if (property == current->properties.end()) return false;
        const bool isLast = i + 1 == segments.size();
        if (property->indexed && !isLast && !MarkElements(*property, segments[i])) return false;
        matched.push_back(&*property);
        current = property->subSchema;
    }
    return true;
}

bool IsElementMarked(const Property_T& property, int index) {
    const auto mark = property.indexDirty.find(index);
    return mark != property.indexDirty.end() && mark->second;
}

// How deep the printing is nested, over all threads: two that print at once mix
// their lines anyway.
std::atomic<int> g_printDepth{0};

class PrintLevel {
public:
    PrintLevel() : m_depth(++g_printDepth) {}
    ~PrintLevel() { --g_printDepth; }
    PrintLevel(const PrintLevel&) = delete;
    PrintLevel& operator=(const PrintLevel&) = delete;

    int Depth() const { return m_depth; }

private:
    const int m_depth;
};

void PrintProperty(const Property_T& property, int depth) {
    for (int i = 0; i < depth; ++i) PrintOutText("\t");
    PrintOut("name:%s; dirty:%d", property.name.c_str(), property.dirty ? 1 : 0);
    if (property.indexed) {
        for (const auto& [index, mark] : property.indexDirty) PrintOut("[%d:%d]", index, mark ? 1 : 0);
    }
    PrintOutText("\n");
}

}  // namespace

Property_T::Property_T() : dirty(false), indexed(false), subSchema(nullptr) {}

Property_T::Property_T(const Property_T& other)
    : name(other.name),
      dirty(other.dirty),
      indexed(other.indexed),
      indexDirty(other.indexDirty),
      subSchema(other.subSchema != nullptr ? new ObjectSchema_T(*other.subSchema) : nullptr) {}

Property_T& Property_T::operator=(const Property_T& other) {
    // Copied before anything is given up: `other` may be part of our own sub-schema.
    if (this != &other) *this = Property_T(other);
    return *this;
}

Property_T::Property_T(Property_T&& other) noexcept
    : name(std::move(other.name)),
      dirty(other.dirty),
      indexed(other.indexed),
      indexDirty(std::move(other.indexDirty)),
      subSchema(std::exchange(other.subSchema, nullptr)) {}

Property_T& Property_T::operator=(Property_T&& other) noexcept {
    // As above; what is given up goes with this at the end.
    Property_T taken(std::move(other));
    name.swap(taken.name);
    dirty = taken.dirty;
    indexed = taken.indexed;
    indexDirty.swap(taken.indexDirty);
    std::swap(subSchema, taken.subSchema);
    return *this;
}

Property_T::~Property_T() {
    delete subSchema;
}

ObjectSchema_T::ObjectSchema_T() = default;

ObjectSchema_T::ObjectSchema_T(const ObjectSchema_T& other) = default;

ObjectSchema_T& ObjectSchema_T::operator=(const ObjectSchema_T& other) {
    // As above, `other` may be a sub-schema of ours.
    if (this != &other) *this = ObjectSchema_T(other);
    return *this;
}

ObjectSchema_T::ObjectSchema_T(ObjectSchema_T&& other) noexcept
    : name(std::move(other.name)), properties(std::move(other.properties)) {}

ObjectSchema_T& ObjectSchema_T::operator=(ObjectSchema_T&& other) noexcept {
    ObjectSchema_T taken(std::move(other));
    name.swap(taken.name);
    properties.swap(taken.properties);
    return *this;
}

ObjectSchema_T::~ObjectSchema_T() = default;

void ObjectSchema_T::Clear() {
    properties.clear();
}

bool __SetDirty(ObjectSchema_T& schema, const char* spec) {
    std::vector<Property_T*> matched;
    for (const std::string& path : Split(Trim(spec != nullptr ? spec : ""), ';')) {
        if (!MatchPath(schema, Trim(path), matched)) return false;
    }
    for (Property_T* const property : matched) property->dirty = true;
    return true;
}

bool __IsDirty(const ObjectSchema_T& schema, const char* path) {
    const std::vector<std::string> segments = Split(Trim(path != nullptr ? path : ""), '.');
    const ObjectSchema_T* current = &schema;
    for (std::size_t i = 0; i < segments.size(); ++i) {
        if (current == nullptr) return false;
        const auto property = std::find_if(current->properties.begin(), current->properties.end(),
                                           [&](const Property_T& p) { return p.dirty && p.name == segments[i]; });
        if (property == current->properties.end()) return false;
        const bool isLast = i + 1 == segments.size();
        if (property->indexed && !isLast && !IsElementMarked(*property, ToIndex(segments[i]))) return false;
        current = property->subSchema;
    }
    return !segments.empty();
}

void __PrintSchemaDirty(const ObjectSchema_T& schema) {
    const PrintLevel level;
    for (const Property_T& property : schema.properties) {
        PrintProperty(property, level.Depth());
        if (property.subSchema != nullptr) __PrintSchemaDirty(*property.subSchema);
    }
}
