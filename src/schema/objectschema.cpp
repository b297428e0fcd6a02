#include <bundlemgr/schema.h>

#include <algorithm>
#include <atomic>
#include <climits>
#include <cstdlib>
#include <iterator>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "src/platform/standardoutput.h"
#include "src/platform/text.h"

namespace {

using NS_BUNDLEMGR1::PrintOut;
using NS_BUNDLEMGR1::PrintOutText;
using NS_BUNDLEMGR1::TakeField;
using NS_BUNDLEMGR1::TrimmedView;

std::string_view Trimmed(const char* text) {
    return TrimmedView(text != nullptr ? text : "");
}

/// The number that `text` begins with, 0 where there is none. One that does not fit into an
/// int becomes the int that is nearest to it.
int ToIndex(std::string_view text) {
    const long number = std::strtol(std::string(text).c_str(), nullptr, 10);
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
bool MarkElements(Property_T& property, std::string_view indices) {
    std::string_view first;
    if (!TakeField(indices, '-', first)) return false;
    std::string_view last = first;
    TakeField(indices, '-', last);
    if (!indices.empty()) return false;
    MarkRange(property.indexDirty, ToIndex(first), ToIndex(last));
    return true;
}

/// Finds properties by name, over and over: first by looking at one after the other, and when
/// that has taken as long as a table of a schema's names takes, with a table. So each of n names
/// takes about the same time, however many there are.
class PropertyFinder {
public:
    /// @return the first one of that name, or null
    Property_T* Find(ObjectSchema_T& schema, std::string_view name) {
        if (schema.properties.size() <= kFew) return Look(schema, name).first;
        Names& names = m_schemas[&schema];
        if (names.looks > schema.properties.size()) return names.FindIn(schema, name);
        const auto [property, looks] = Look(schema, name);
        names.looks += looks;
        return property;
    }

private:
    static constexpr std::size_t kFew = 8;  // are looked at faster than a table is

    struct Names {
        std::size_t looks = 0;
        std::unordered_map<std::string_view, Property_T*> table;

        Property_T* FindIn(ObjectSchema_T& schema, std::string_view name) {
            if (table.empty()) {
                table.reserve(schema.properties.size());
                for (Property_T& property : schema.properties) table.emplace(property.name, &property);
            }
            const auto found = table.find(name);
            return found != table.end() ? found->second : nullptr;
        }
    };

    /// @return the property, and how many were looked at
    static std::pair<Property_T*, std::size_t> Look(ObjectSchema_T& schema, std::string_view name) {
        std::size_t looks = 0;
        for (Property_T& property : schema.properties) {
            ++looks;
            if (property.name == name) return {&property, looks};
        }
        return {nullptr, looks};
    }

    std::unordered_map<ObjectSchema_T*, Names> m_schemas;
};

/// Walks `path` and appends the properties on it to `matched`, marking elements on
/// the way. The elements come from the segment that names the indexed property.
/// @return whether the path led to its end
bool MatchPath(ObjectSchema_T& schema, std::string_view path, PropertyFinder& finder,
               std::vector<Property_T*>& matched) {
    ObjectSchema_T* current = &schema;
    std::string_view segment;
    while (TakeField(path, '.', segment)) {
        if (current == nullptr) return false;
        Property_T* const property = finder.Find(*current, segment);
        if (property == nullptr) return false;
        const bool isLast = path.empty();
        if (property->indexed && !isLast && !MarkElements(*property, segment)) return false;
        matched.push_back(property);
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
    PropertyFinder finder;
    std::vector<Property_T*> matched;
    std::string_view paths = Trimmed(spec);
    std::string_view path;
    while (TakeField(paths, ';', path)) {
        if (!MatchPath(schema, TrimmedView(path), finder, matched)) return false;
    }
    for (Property_T* const property : matched) property->dirty = true;
    return true;
}

bool __IsDirty(const ObjectSchema_T& schema, const char* path) {
    std::string_view rest = Trimmed(path);
    if (rest.empty()) return false;
    const ObjectSchema_T* current = &schema;
    std::string_view segment;
    while (TakeField(rest, '.', segment)) {
        if (current == nullptr) return false;
        const auto property = std::find_if(current->properties.begin(), current->properties.end(),
                                           [&](const Property_T& p) { return p.dirty && p.name == segment; });
        if (property == current->properties.end()) return false;
        const bool isLast = rest.empty();
        if (property->indexed && !isLast && !IsElementMarked(*property, ToIndex(segment))) return false;
        current = property->subSchema;
    }
    return true;
}

void __PrintSchemaDirty(const ObjectSchema_T& schema) {
    const PrintLevel level;
    for (const Property_T& property : schema.properties) {
        PrintProperty(property, level.Depth());
        if (property.subSchema != nullptr) __PrintSchemaDirty(*property.subSchema);
    }
}
