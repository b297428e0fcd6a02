#include <bundlemgr/schema.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "support/capture.h"

namespace {

using Marks = std::map<int, bool>;

Property_T& Add(ObjectSchema_T& schema, const std::string& name, bool indexed = false) {
    Property_T property;
    property.name = name;
    property.indexed = indexed;
    schema.properties.push_back(property);
    return schema.properties.back();
}

ObjectSchema_T& AddSub(Property_T& property) {
    property.subSchema = new ObjectSchema_T;
    return *property.subSchema;
}

/// Properties "a", with a sub-schema that holds "b", and "c".
ObjectSchema_T TwoLevels() {
    ObjectSchema_T schema;
    schema.name = "two levels";
    schema.properties.reserve(2);
    Add(AddSub(Add(schema, "a")), "b");
    Add(schema, "c");
    return schema;
}

/// An indexed property of that name, with a sub-schema that holds "v".
ObjectSchema_T Indexed(const std::string& name) {
    ObjectSchema_T schema;
    Add(AddSub(Add(schema, name, true)), "v");
    return schema;
}

/// The whole tree as text: "*" marks a dirty property.
std::string Dump(const ObjectSchema_T& schema) {
    std::string text;
    for (const Property_T& property : schema.properties) {
        text += "'" + property.name + "'" + (property.dirty ? "*" : "");
        for (const auto& [index, mark] : property.indexDirty) {
            text += "[" + std::to_string(index) + (mark ? "" : "!") + "]";
        }
        if (property.subSchema != nullptr) text += "(" + Dump(*property.subSchema) + ")";
        text += " ";
    }
    return text;
}

Marks MarksOf(const std::string& indexedName) {
    ObjectSchema_T schema = Indexed(indexedName);
    EXPECT_TRUE(__SetDirty(schema, (indexedName + ".v").c_str()));
    return schema.properties[0].indexDirty;
}

/// A sub-schema that tells when it goes.
class CountedSchema : public ObjectSchema_T {
public:
    explicit CountedSchema(int& destroyed) : m_destroyed(destroyed) {}
    ~CountedSchema() override { ++m_destroyed; }

private:
    int& m_destroyed;
};

TEST(Property, IsCleanAtFirst) {
    const Property_T property;
    EXPECT_EQ("", property.name);
    EXPECT_FALSE(property.dirty);
    EXPECT_FALSE(property.indexed);
    EXPECT_TRUE(property.indexDirty.empty());
    EXPECT_EQ(nullptr, property.subSchema);
}

TEST(Property, CopiesEverythingAndTheSubSchemaDeeply) {
    ObjectSchema_T schema = TwoLevels();
    Property_T& original = schema.properties[0];
    original.subSchema->name = "sub";
    original.dirty = true;
    original.indexed = true;
    original.indexDirty = {{3, true}, {4, false}};

    Property_T copy(original);
    EXPECT_EQ("a", copy.name);
    EXPECT_TRUE(copy.dirty);
    EXPECT_TRUE(copy.indexed);
    EXPECT_EQ((Marks{{3, true}, {4, false}}), copy.indexDirty);
    ASSERT_NE(nullptr, copy.subSchema);
    EXPECT_NE(original.subSchema, copy.subSchema);
    EXPECT_EQ("sub", copy.subSchema->name);
    EXPECT_EQ("'b' ", Dump(*copy.subSchema));

    copy.subSchema->properties[0].dirty = true;
    EXPECT_FALSE(original.subSchema->properties[0].dirty);
}

TEST(Property, AssignmentReplacesAndDestroysTheOldSubSchema) {
    int destroyed = 0;
    Property_T target;
    target.name = "old";
    target.subSchema = new CountedSchema(destroyed);
    target.indexDirty = {{1, true}};
    Property_T source;
    source.name = "new";
    source.dirty = true;
    source.indexed = true;
    source.indexDirty = {{2, true}};

    target = source;
    EXPECT_EQ(1, destroyed);
    EXPECT_EQ("new", target.name);
    EXPECT_TRUE(target.dirty);
    EXPECT_TRUE(target.indexed);
    EXPECT_EQ((Marks{{2, true}}), target.indexDirty);
    EXPECT_EQ(nullptr, target.subSchema);
}

TEST(Property, AssignmentCopiesTheSubSchemaDeeply) {
    const ObjectSchema_T schema = TwoLevels();
    Property_T target;
    target = schema.properties[0];
    ASSERT_NE(nullptr, target.subSchema);
    EXPECT_NE(schema.properties[0].subSchema, target.subSchema);
    EXPECT_EQ("'b' ", Dump(*target.subSchema));
}

TEST(Property, SelfAssignmentChangesNothing) {
    int destroyed = 0;
    Property_T property;
    property.name = "self";
    property.subSchema = new CountedSchema(destroyed);
    const ObjectSchema_T* const sub = property.subSchema;
    const Property_T& same = property;

    property = same;
    EXPECT_EQ(0, destroyed);
    EXPECT_EQ("self", property.name);
    EXPECT_EQ(sub, property.subSchema);
}

TEST(Property, TakesTheValueOfAPropertyBelowIt) {
    ObjectSchema_T schema = TwoLevels();
    Property_T& a = schema.properties[0];
    AddSub(a.subSchema->properties[0]).name = "deep";

    a = a.subSchema->properties[0];
    EXPECT_EQ("b", a.name);
    ASSERT_NE(nullptr, a.subSchema);
    EXPECT_EQ("deep", a.subSchema->name);
}

TEST(Property, MovesWithItsSubSchema) {
    int destroyed = 0;
    Property_T from;
    from.name = "from";
    from.dirty = true;
    from.indexed = true;
    from.indexDirty[3] = true;
    from.subSchema = new CountedSchema(destroyed);
    const ObjectSchema_T* const sub = from.subSchema;

    Property_T moved(std::move(from));
    Property_T target;
    target.subSchema = new CountedSchema(destroyed);
    target = std::move(moved);
    EXPECT_EQ(1, destroyed);
    EXPECT_EQ("from", target.name);
    EXPECT_TRUE(target.dirty);
    EXPECT_TRUE(target.indexed);
    EXPECT_EQ((Marks{{3, true}}), target.indexDirty);
    EXPECT_EQ(sub, target.subSchema);
}

TEST(Property, TakesOverAPropertyBelowIt) {
    ObjectSchema_T schema = TwoLevels();
    Property_T& a = schema.properties[0];
    AddSub(a.subSchema->properties[0]).name = "deep";

    a = std::move(a.subSchema->properties[0]);
    EXPECT_EQ("b", a.name);
    ASSERT_NE(nullptr, a.subSchema);
    EXPECT_EQ("deep", a.subSchema->name);
}

TEST(Property, DestroysItsSubSchemaThroughTheVirtualDestructor) {
    int destroyed = 0;
    {
        Property_T property;
        property.subSchema = new CountedSchema(destroyed);
    }
    EXPECT_EQ(1, destroyed);
}

TEST(Schema, IsEmptyAtFirst) {
    const ObjectSchema_T schema;
    EXPECT_EQ("", schema.name);
    EXPECT_TRUE(schema.properties.empty());
}

TEST(Schema, CopiesDeeply) {
    ObjectSchema_T original = TwoLevels();
    const ObjectSchema_T copy(original);
    EXPECT_TRUE(__SetDirty(original, "a.b;c"));
    EXPECT_EQ("two levels", copy.name);
    EXPECT_EQ("'a'('b' ) 'c' ", Dump(copy));
}

TEST(Schema, AssignsDeeply) {
    ObjectSchema_T original = TwoLevels();
    ObjectSchema_T target = Indexed("3");
    target = original;
    EXPECT_TRUE(__SetDirty(original, "a.b;c"));
    EXPECT_EQ("two levels", target.name);
    EXPECT_EQ("'a'('b' ) 'c' ", Dump(target));
}

TEST(Schema, SelfAssignmentChangesNothing) {
    ObjectSchema_T schema = TwoLevels();
    const ObjectSchema_T* const sub = schema.properties[0].subSchema;
    const ObjectSchema_T& same = schema;
    schema = same;
    EXPECT_EQ(sub, schema.properties[0].subSchema);
    EXPECT_EQ("'a'('b' ) 'c' ", Dump(schema));
}

TEST(Schema, TakesTheValueOfASchemaBelowIt) {
    ObjectSchema_T schema = TwoLevels();
    schema.properties[0].subSchema->name = "sub";
    schema = *schema.properties[0].subSchema;
    EXPECT_EQ("sub", schema.name);
    EXPECT_EQ("'b' ", Dump(schema));
}

TEST(Schema, MovesWithItsProperties) {
    ObjectSchema_T from = TwoLevels();
    const ObjectSchema_T* const sub = from.properties[0].subSchema;
    ObjectSchema_T moved(std::move(from));
    ObjectSchema_T target = Indexed("3");
    target = std::move(moved);
    EXPECT_EQ("two levels", target.name);
    EXPECT_EQ("'a'('b' ) 'c' ", Dump(target));
    EXPECT_EQ(sub, target.properties[0].subSchema);
}

TEST(Schema, GrowsWithoutCopyingSubSchemas) {
    ObjectSchema_T schema = TwoLevels();
    const ObjectSchema_T* const sub = schema.properties[0].subSchema;
    while (schema.properties.size() < 100) Add(schema, "more");
    EXPECT_EQ(sub, schema.properties[0].subSchema);
}

TEST(Schema, ClearDestroysThePropertiesAndKeepsTheName) {
    int destroyed = 0;
    ObjectSchema_T schema;
    schema.name = "kept";
    Add(schema, "a");
    Add(schema, "b");
    schema.properties[0].subSchema = new CountedSchema(destroyed);

    schema.Clear();
    EXPECT_EQ(1, destroyed);
    EXPECT_TRUE(schema.properties.empty());
    EXPECT_EQ("kept", schema.name);
    schema.Clear();
    EXPECT_EQ(1, destroyed);
}

TEST(Schema, ClearIsVirtual) {
    class Counting : public ObjectSchema_T {
    public:
        void Clear() override { ++cleared; }
        int cleared = 0;
    };
    Counting counting;
    ObjectSchema_T& schema = counting;
    schema.Clear();
    EXPECT_EQ(1, counting.cleared);
}

TEST(SetDirty, MarksTheWholeChainOfEachPath) {
    ObjectSchema_T schema = TwoLevels();
    EXPECT_TRUE(__SetDirty(schema, "a.b;c"));
    EXPECT_EQ("'a'*('b'* ) 'c'* ", Dump(schema));
    EXPECT_TRUE(__IsDirty(schema, "a"));
    EXPECT_TRUE(__IsDirty(schema, "a.b"));
    EXPECT_TRUE(__IsDirty(schema, "c"));
}

TEST(SetDirty, LeavesTheSubSchemaOfThePathsLastProperty) {
    ObjectSchema_T schema = TwoLevels();
    EXPECT_TRUE(__SetDirty(schema, "a"));
    EXPECT_EQ("'a'*('b' ) 'c' ", Dump(schema));
    EXPECT_FALSE(__IsDirty(schema, "a.b"));
}

TEST(SetDirty, MarksNothingWhenAPathFails) {
    for (const char* spec : {"a.x;c", "c;a.x", "x", "c;x;a", "a.b.x", "c.x", "A", "a;c.x", "a b"}) {
        ObjectSchema_T schema = TwoLevels();
        EXPECT_FALSE(__SetDirty(schema, spec)) << spec;
        EXPECT_EQ("'a'('b' ) 'c' ", Dump(schema)) << spec;
    }
}

TEST(SetDirty, KeepsEarlierMarksWhenAPathFails) {
    ObjectSchema_T schema = TwoLevels();
    EXPECT_TRUE(__SetDirty(schema, "c"));
    EXPECT_FALSE(__SetDirty(schema, "a;x"));
    EXPECT_EQ("'a'('b' ) 'c'* ", Dump(schema));
}

TEST(SetDirty, NoPathIsSuccess) {
    for (const char* spec : {"", "  \t\r\n", ";", " ; ", ";;", static_cast<const char*>(nullptr)}) {
        ObjectSchema_T schema = TwoLevels();
        EXPECT_TRUE(__SetDirty(schema, spec));
        EXPECT_EQ("'a'('b' ) 'c' ", Dump(schema));
    }
}

TEST(SetDirty, IgnoresWhiteSpaceAroundPathsAndEmptyPaths) {
    ObjectSchema_T schema = TwoLevels();
    EXPECT_TRUE(__SetDirty(schema, " \t a.b \n;;\r c ; "));
    EXPECT_EQ("'a'*('b'* ) 'c'* ", Dump(schema));
}

TEST(SetDirty, KeepsWhiteSpaceAroundSegments) {
    ObjectSchema_T schema = TwoLevels();
    EXPECT_FALSE(__SetDirty(schema, "a .b"));
    EXPECT_FALSE(__SetDirty(schema, "a. b"));
    schema.properties[0].name = "a ";
    EXPECT_TRUE(__SetDirty(schema, "a .b"));
}

TEST(SetDirty, ATrailingPointAddsNoSegment) {
    ObjectSchema_T schema = TwoLevels();
    EXPECT_TRUE(__SetDirty(schema, "a.b."));
    EXPECT_TRUE(__SetDirty(schema, "c."));
    EXPECT_FALSE(__SetDirty(schema, "c.."));
    EXPECT_FALSE(__SetDirty(schema, ".c"));
    EXPECT_EQ("'a'*('b'* ) 'c'* ", Dump(schema));
}

TEST(SetDirty, AnEmptySegmentNamesAPropertyWithoutAName) {
    ObjectSchema_T schema;
    Add(AddSub(Add(schema, "")), "b");
    EXPECT_TRUE(__SetDirty(schema, ".b"));
    EXPECT_TRUE(__IsDirty(schema, ".b"));
    EXPECT_TRUE(__IsDirty(schema, "."));
    EXPECT_EQ("''*('b'* ) ", Dump(schema));
}

TEST(SetDirty, TakesTheFirstOfEqualNames) {
    ObjectSchema_T schema;
    Add(schema, "a");
    Add(schema, "a");
    EXPECT_TRUE(__SetDirty(schema, "a"));
    EXPECT_EQ("'a'* 'a' ", Dump(schema));
}

TEST(SetDirty, MarksTheElementThatAnIndexedPropertyIsNamedAfter) {
    ObjectSchema_T schema = Indexed("3");
    EXPECT_TRUE(__SetDirty(schema, "3.v"));
    EXPECT_EQ("'3'*[3]('v'* ) ", Dump(schema));
    EXPECT_TRUE(__IsDirty(schema, "3.v"));
}

TEST(SetDirty, MarksEveryElementOfARange) {
    EXPECT_EQ((Marks{{2, true}, {3, true}, {4, true}}), MarksOf("2-4"));
    EXPECT_EQ((Marks{{4, true}}), MarksOf("4-4"));
}

TEST(SetDirty, ReadsIndicesAsStrtolDoes) {
    EXPECT_EQ((Marks{}), MarksOf("4-2"));
    EXPECT_EQ((Marks{{0, true}}), MarksOf("list"));
    EXPECT_EQ((Marks{{12, true}}), MarksOf("12x"));
    EXPECT_EQ((Marks{{8, true}}), MarksOf("08"));
    EXPECT_EQ((Marks{{0, true}}), MarksOf("0x10"));
    EXPECT_EQ((Marks{{7, true}}), MarksOf("+7"));
    EXPECT_EQ((Marks{{1, true}, {2, true}}), MarksOf("1 - 2"));
    // An empty piece counts as 0; a last one is none.
    EXPECT_EQ((Marks{{0, true}, {1, true}, {2, true}}), MarksOf("-2"));
    EXPECT_EQ((Marks{{5, true}}), MarksOf("5-"));
    EXPECT_EQ((Marks{{0, true}}), MarksOf("-"));
    EXPECT_EQ((Marks{{0, true}}), MarksOf("--"));
}

TEST(SetDirty, ARangeMayEndAtTheLargestIndex) {
    EXPECT_EQ((Marks{{INT_MAX - 2, true}, {INT_MAX - 1, true}, {INT_MAX, true}}), MarksOf("2147483645-2147483647"));
    EXPECT_EQ((Marks{{INT_MAX, true}}), MarksOf("2147483647"));
}

TEST(SetDirty, AnIndexThatNoIntHoldsIsTheNearestThatOneHolds) {
    EXPECT_EQ((Marks{{INT_MAX, true}}), MarksOf("2147483648"));
    EXPECT_EQ((Marks{{INT_MAX, true}}), MarksOf("4294967298"));
    EXPECT_EQ((Marks{{INT_MAX, true}}), MarksOf("99999999999999999999999"));
    EXPECT_EQ((Marks{{INT_MAX - 1, true}, {INT_MAX, true}}), MarksOf("2147483646-99999999999999999999999"));

    ObjectSchema_T schema = Indexed("4294967298");
    EXPECT_TRUE(__SetDirty(schema, "4294967298.v"));
    EXPECT_TRUE(__IsDirty(schema, "4294967298.v"));
}

TEST(SetDirty, MarksALargeRange) {
    EXPECT_EQ(100001u, MarksOf("0-100000").size());
}

TEST(SetDirty, AddsARangeToTheMarksThatAreThere) {
    ObjectSchema_T schema = Indexed("2-4");
    schema.properties[0].indexDirty = {{1, false}, {3, false}, {9, true}};
    EXPECT_TRUE(__SetDirty(schema, "2-4.v"));
    EXPECT_EQ((Marks{{1, false}, {2, true}, {3, true}, {4, true}, {9, true}}), schema.properties[0].indexDirty);
}

TEST(SetDirty, OtherNumbersOfPiecesFail) {
    for (const char* name : {"1-2-3", "1--2", "--1", "---"}) {
        ObjectSchema_T schema = Indexed(name);
        EXPECT_FALSE(__SetDirty(schema, (std::string(name) + ".v").c_str())) << name;
        EXPECT_TRUE(schema.properties[0].indexDirty.empty()) << name;
    }
    ObjectSchema_T schema = Indexed("");
    EXPECT_FALSE(__SetDirty(schema, ".v"));
    EXPECT_EQ("''('v' ) ", Dump(schema));
}

TEST(SetDirty, AnIndexedPropertyAtTheEndOfItsPathGetsNoElementMark) {
    ObjectSchema_T schema = Indexed("3");
    EXPECT_TRUE(__SetDirty(schema, "3"));
    EXPECT_EQ("'3'*('v' ) ", Dump(schema));
    EXPECT_TRUE(__IsDirty(schema, "3"));
    EXPECT_FALSE(__IsDirty(schema, "3.v"));
    ObjectSchema_T noIndex = Indexed("1-2-3");
    EXPECT_TRUE(__SetDirty(noIndex, "1-2-3"));
}

TEST(SetDirty, KeepsElementMarksThoughTheCallFailsLater) {
    ObjectSchema_T schema = Indexed("3");
    EXPECT_FALSE(__SetDirty(schema, "3.x"));
    EXPECT_EQ("'3'[3]('v' ) ", Dump(schema));
}

TEST(SetDirty, MarksTheElementBeforeItMissesTheSubSchema) {
    ObjectSchema_T schema;
    Add(schema, "3", true);
    EXPECT_FALSE(__SetDirty(schema, "3.v"));
    EXPECT_EQ("'3'[3] ", Dump(schema));
}

TEST(IsDirty, NoPathIsNotDirty) {
    ObjectSchema_T schema = TwoLevels();
    EXPECT_TRUE(__SetDirty(schema, "a.b;c"));
    EXPECT_FALSE(__IsDirty(schema, ""));
    EXPECT_FALSE(__IsDirty(schema, nullptr));
    EXPECT_FALSE(__IsDirty(schema, "."));
}

TEST(IsDirty, TakesOnePathOnly) {
    ObjectSchema_T schema = TwoLevels();
    EXPECT_TRUE(__SetDirty(schema, "a.b;c"));
    EXPECT_FALSE(__IsDirty(schema, "a.b;c"));
    EXPECT_FALSE(__IsDirty(schema, "c;"));
    EXPECT_FALSE(__IsDirty(schema, "C"));
    EXPECT_FALSE(__IsDirty(schema, "a.x"));
    EXPECT_FALSE(__IsDirty(schema, "c.x"));
    EXPECT_TRUE(__IsDirty(schema, "c."));
}

TEST(IsDirty, IgnoresWhiteSpaceAroundThePath) {
    ObjectSchema_T schema = TwoLevels();
    EXPECT_TRUE(__SetDirty(schema, " a.b ;\tc\r\n"));
    for (const char* const path : {" c", "c ", "\tc\r\n", " a.b\n", "\n\r\t a.b \t\r\n"}) {
        EXPECT_TRUE(__IsDirty(schema, path)) << testing::PrintToString(path);
    }
    for (const char* const path : {" ", "\t\r\n", "\fc", "c\v"}) {
        EXPECT_FALSE(__IsDirty(schema, path)) << testing::PrintToString(path);
    }
}

TEST(IsDirty, KeepsWhiteSpaceAroundSegments) {
    ObjectSchema_T schema = TwoLevels();
    EXPECT_TRUE(__SetDirty(schema, "a.b"));
    EXPECT_FALSE(__IsDirty(schema, "a .b"));
    EXPECT_FALSE(__IsDirty(schema, "a. b"));
    EXPECT_TRUE(__IsDirty(schema, " a.b. "));
    schema.properties[0].name = "a ";
    EXPECT_TRUE(__IsDirty(schema, "a .b"));
    schema.properties[0].name = " a";
    EXPECT_FALSE(__IsDirty(schema, " a.b"));  // what is outside goes, whatever it was for
}

TEST(IsDirty, EveryPropertyOnTheWayMustBeDirty) {
    ObjectSchema_T schema = TwoLevels();
    schema.properties[0].subSchema->properties[0].dirty = true;
    EXPECT_FALSE(__IsDirty(schema, "a.b"));
    schema.properties[0].dirty = true;
    EXPECT_TRUE(__IsDirty(schema, "a.b"));
}

TEST(IsDirty, PassesOverCleanPropertiesOfTheSameName) {
    ObjectSchema_T schema;
    Add(schema, "a");
    Add(schema, "a").dirty = true;
    EXPECT_TRUE(__IsDirty(schema, "a"));
}

TEST(IsDirty, AsksForTheElementThatTheSegmentBeginsWith) {
    ObjectSchema_T schema = Indexed("2-4");
    EXPECT_TRUE(__SetDirty(schema, "2-4.v"));
    EXPECT_TRUE(__IsDirty(schema, "2-4.v"));
    schema.properties[0].indexDirty[2] = false;
    EXPECT_FALSE(__IsDirty(schema, "2-4.v"));
    schema.properties[0].indexDirty.erase(2);
    EXPECT_FALSE(__IsDirty(schema, "2-4.v"));
    EXPECT_TRUE(__IsDirty(schema, "2-4"));
}

TEST(PrintSchemaDirty, IndentsByDepth) {
    ObjectSchema_T schema = TwoLevels();
    EXPECT_TRUE(__SetDirty(schema, "a"));
    const auto print = [&] { __PrintSchemaDirty(schema); };
    const std::string expected =
        "\tname:a; dirty:1\n"
        "\t\tname:b; dirty:0\n"
        "\tname:c; dirty:0\n";
    EXPECT_EQ(expected, test::StdoutOf(print));
    // The depth is back where it was.
    EXPECT_EQ(expected, test::StdoutOf(print));
}

TEST(PrintSchemaDirty, PrintsElementMarksInAscendingOrder) {
    ObjectSchema_T schema;
    Add(schema, "list", true).indexDirty = {{7, true}, {-1, false}, {2, true}};
    Add(schema, "plain").indexDirty = {{1, true}};
    EXPECT_EQ(
        "\tname:list; dirty:0[-1:0][2:1][7:1]\n"
        "\tname:plain; dirty:0\n",
        test::StdoutOf([&] { __PrintSchemaDirty(schema); }));
}

TEST(PrintSchemaDirty, PrintsNamesAsTheyAre) {
    ObjectSchema_T schema;
    Add(schema, "100%s%n");
    Add(schema, "");
    EXPECT_EQ("\tname:100%s%n; dirty:0\n\tname:; dirty:0\n", test::StdoutOf([&] { __PrintSchemaDirty(schema); }));
}

TEST(PrintSchemaDirty, PrintsNothingForAnEmptySchema) {
    EXPECT_EQ("", test::StdoutOf([] { __PrintSchemaDirty(ObjectSchema_T()); }));
}

TEST(PrintSchemaDirty, DepthSurvivesThreadsThatPrintAtOnce) {
    const ObjectSchema_T schema = TwoLevels();
    test::StdoutOf([&] {
        std::vector<std::thread> threads;
        threads.reserve(4);
        for (int i = 0; i < 4; ++i) {
            threads.emplace_back([copy = schema] {
                for (int round = 0; round < 200; ++round) __PrintSchemaDirty(copy);
            });
        }
        for (std::thread& thread : threads) thread.join();
    });
    EXPECT_EQ("\tname:a; dirty:0\n\t\tname:b; dirty:0\n\tname:c; dirty:0\n",
              test::StdoutOf([&] { __PrintSchemaDirty(schema); }));
}

// A slow model of the path grammar. It knows nothing of the schema's types: a node
// has a name, flags and perhaps children.
struct Node {
    std::string name;
    bool indexed = false;
    bool dirty = false;
    bool hasChildren = false;
    Marks marks;
    std::vector<Node> children;
};

std::vector<std::string> ModelSplit(const std::string& text, char separator) {
    std::vector<std::string> parts(1);
    for (const char c : text) {
        if (c == separator) {
            parts.emplace_back();
        } else {
            parts.back() += c;
        }
    }
    // The part behind a last separator is none, nor is that of an empty text.
    if (parts.back().empty()) parts.pop_back();
    return parts;
}

std::string ModelTrim(std::string text) {
    const std::string white = " \t\n\r";
    while (!text.empty() && white.find(text.front()) != std::string::npos) text.erase(0, 1);
    while (!text.empty() && white.find(text.back()) != std::string::npos) text.pop_back();
    return text;
}

bool ModelMark(Node& node) {
    const std::vector<std::string> pieces = ModelSplit(node.name, '-');
    if (pieces.size() != 1 && pieces.size() != 2) return false;
    const int first = std::atoi(pieces[0].c_str());
    const int last = pieces.size() == 1 ? first : std::atoi(pieces[1].c_str());
    for (int i = first; i <= last; ++i) node.marks[i] = true;
    return true;
}

bool ModelResolve(Node& parent, std::vector<std::string> segments, std::vector<Node*>& found) {
    if (segments.empty()) return true;
    if (!parent.hasChildren) return false;
    for (Node& child : parent.children) {
        if (child.name != segments.front()) continue;
        segments.erase(segments.begin());
        if (child.indexed && !segments.empty() && !ModelMark(child)) return false;
        found.push_back(&child);
        return ModelResolve(child, segments, found);
    }
    return false;
}

bool ModelSetDirty(Node& root, const std::string& spec) {
    std::vector<Node*> found;
    for (const std::string& path : ModelSplit(ModelTrim(spec), ';')) {
        if (!ModelResolve(root, ModelSplit(ModelTrim(path), '.'), found)) return false;
    }
    for (Node* const node : found) node->dirty = true;
    return true;
}

bool ModelIsDirty(const Node& parent, std::vector<std::string> segments) {
    if (segments.empty() || !parent.hasChildren) return false;
    for (const Node& child : parent.children) {
        if (child.name != segments.front() || !child.dirty) continue;
        segments.erase(segments.begin());
        if (segments.empty()) return true;
        const int element = std::atoi(child.name.c_str());
        if (child.indexed && (child.marks.count(element) == 0 || !child.marks.at(element))) return false;
        return ModelIsDirty(child, segments);
    }
    return false;
}

void BuildSchema(const Node& node, ObjectSchema_T& schema) {
    schema.properties.reserve(node.children.size());
    for (const Node& child : node.children) {
        Property_T& property = Add(schema, child.name, child.indexed);
        if (child.hasChildren) BuildSchema(child, AddSub(property));
    }
}

std::string Dump(const Node& node) {
    std::string text;
    for (const Node& child : node.children) {
        text += "'" + child.name + "'" + (child.dirty ? "*" : "");
        for (const auto& [index, mark] : child.marks) text += "[" + std::to_string(index) + (mark ? "" : "!") + "]";
        if (child.hasChildren) text += "(" + Dump(child) + ")";
        text += " ";
    }
    return text;
}

class Generator {
public:
    explicit Generator(unsigned seed, std::size_t maxChildren = 5, std::size_t maxPaths = 3)
        : m_random(seed), m_maxChildren(maxChildren), m_maxPaths(maxPaths) {}

    Node RandomTree(int levels) {
        Node node;
        node.name = RandomName();
        node.indexed = Below(2) == 0;
        node.hasChildren = levels > 0 && Below(4) != 0;
        for (std::size_t i = node.hasChildren ? Below(m_maxChildren + 1) : 0; i > 0; --i) {
            node.children.push_back(RandomTree(levels - 1));
        }
        return node;
    }

    // Mostly a way down the tree, so that many paths resolve.
    std::string RandomPath(const Node& root) {
        std::string path;
        const Node* node = &root;
        for (std::size_t i = Below(5); i > 0; --i) {
            const bool follow = !node->children.empty() && Below(10) != 0;
            const Node* const next = follow ? &node->children[Below(node->children.size())] : nullptr;
            path += next != nullptr ? next->name : RandomName();
            if (i > 1 || Below(8) == 0) path += ".";
            if (next != nullptr) node = next;
        }
        return path;
    }

    std::string RandomQuery(const Node& root) { return RandomBlank() + RandomPath(root) + RandomBlank(); }

    std::string RandomSpec(const Node& root) {
        std::string spec;
        for (std::size_t i = Below(m_maxPaths + 1); i > 0; --i) {
            spec += RandomBlank() + RandomPath(root) + RandomBlank();
            if (i > 1 || Below(4) == 0) spec += ";";
        }
        return spec;
    }

private:
    std::size_t Below(std::size_t limit) { return m_random() % limit; }

    std::string RandomName() {
        static const std::vector<std::string> names = {"a",  "b",  "c d", "3",   "2-4",   "7-5", "0",
                                                       "-2", "5-", "",    "x-1", "1-2-3", "-",   "--"};
        return names[Below(names.size())];
    }

    std::string RandomBlank() {
        static const std::vector<std::string> blanks = {"", "", "", " ", "\t", "\r\n", " \t "};
        return blanks[Below(blanks.size())];
    }

    std::mt19937 m_random;
    const std::size_t m_maxChildren;
    const std::size_t m_maxPaths;
};

/// How often something came out so; a generator is worth something only if it reaches all sides.
struct Outcomes {
    int resolved = 0;
    int failed = 0;
    int dirty = 0;
};

void CompareWithModel(Generator& generator, int levels, Outcomes& outcomes) {
    Node model = generator.RandomTree(levels);
    model.hasChildren = true;
    ObjectSchema_T schema;
    BuildSchema(model, schema);
    for (int step = 0; step < 6; ++step) {
        const std::string spec = generator.RandomSpec(model);
        SCOPED_TRACE(testing::PrintToString(spec) + " on " + Dump(model));
        const bool expected = ModelSetDirty(model, spec);
        ++(expected ? outcomes.resolved : outcomes.failed);
        ASSERT_EQ(expected, __SetDirty(schema, spec.c_str()));
        ASSERT_EQ(Dump(model), Dump(schema));
    }
    for (int step = 0; step < 10; ++step) {
        const std::string path = generator.RandomQuery(model);
        SCOPED_TRACE(testing::PrintToString(path) + " on " + Dump(model));
        const bool expected = ModelIsDirty(model, ModelSplit(ModelTrim(path), '.'));
        outcomes.dirty += expected ? 1 : 0;
        ASSERT_EQ(expected, __IsDirty(schema, path.c_str()));
    }
}

TEST(PathGrammar, AgreesWithTheModelOnRandomSchemas) {
    Generator generator(20240301);
    Outcomes outcomes;
    for (int round = 0; round < 1500 && !HasFatalFailure(); ++round) CompareWithModel(generator, 3, outcomes);
    EXPECT_GT(outcomes.resolved, 1000);
    EXPECT_GT(outcomes.failed, 1000);
    EXPECT_GT(outcomes.dirty, 500);
}

// Many properties in one schema, and many paths in one call, are looked up in another way than few.
TEST(PathGrammar, AgreesWithTheModelOnWideSchemas) {
    Generator generator(20240302, 60, 8);
    Outcomes outcomes;
    for (int round = 0; round < 200 && !HasFatalFailure(); ++round) CompareWithModel(generator, 2, outcomes);
    EXPECT_GT(outcomes.resolved, 100);
    EXPECT_GT(outcomes.failed, 100);
    EXPECT_GT(outcomes.dirty, 10);
}

TEST(SetDirty, MarksAllOfManyInAnyOrder) {
    ObjectSchema_T schema;
    std::vector<std::string> names;
    for (int i = 0; i < 3000; ++i) names.push_back("property" + std::to_string(i));
    for (const std::string& name : names) Add(schema, name);
    Add(schema, names.front());  // a second one of that name is never found
    std::shuffle(names.begin(), names.end(), std::mt19937(20240303));
    std::string paths;
    for (const std::string& name : names) paths += name + ";";

    EXPECT_FALSE(__SetDirty(schema, (paths + "no such property").c_str()));
    for (const Property_T& property : schema.properties) ASSERT_FALSE(property.dirty) << property.name;

    EXPECT_TRUE(__SetDirty(schema, paths.c_str()));
    EXPECT_FALSE(schema.properties.back().dirty);
    schema.properties.pop_back();
    for (const Property_T& property : schema.properties) ASSERT_TRUE(property.dirty) << property.name;
}

}  // namespace
