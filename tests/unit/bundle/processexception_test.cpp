#include <type_traits>

#include <gtest/gtest.h>

#include <bundlemgr/bundle.h>

namespace NS_BUNDLEMGR1 {
namespace {

std::string Rest(std::stringstream& stream) {
    std::string rest;
    std::getline(stream, rest, '\0');
    return rest;
}

TEST(ProcessExceptionTest, IsAStandardException) {
    const ProcessException exception;
    EXPECT_STREQ("std::exception", static_cast<const std::exception&>(exception).what());
    EXPECT_STREQ("std::exception", InterfaceNotExistException().what());
    EXPECT_TRUE((std::is_base_of_v<ProcessException, InterfaceNotExistException>));
}

TEST(ProcessExceptionTest, ACopyTakesTheFourTextsOver) {
    ProcessException source;
    source.m_stream1 << "one " << 1;
    source.m_stream2 << "two";
    source.m_stream3 << "three\nlines\n";
    source.m_stream4 << "four";

    ProcessException copy(source);

    EXPECT_EQ("one 1", copy.m_stream1.str());
    EXPECT_EQ("two", copy.m_stream2.str());
    EXPECT_EQ("three\nlines\n", copy.m_stream3.str());
    EXPECT_EQ("four", copy.m_stream4.str());
    for (std::stringstream* const stream :
         {&source.m_stream1, &source.m_stream2, &source.m_stream3, &source.m_stream4}) {
        EXPECT_EQ(std::stringstream::traits_type::eof(), stream->peek());
    }
}

TEST(ProcessExceptionTest, OnlyTheUnreadTextMoves) {
    ProcessException source;
    source.m_stream1 << "read unread";
    std::string word;
    source.m_stream1 >> word;

    ProcessException copy(source);
    ProcessException second(source);

    EXPECT_EQ(" unread", copy.m_stream1.str());
    EXPECT_EQ("", second.m_stream1.str());
}

TEST(ProcessExceptionTest, ACopyOfNothingCanBeWrittenTo) {
    ProcessException source;
    ProcessException copy(source);
    copy.m_stream1 << "late";
    copy.m_stream4 << 4;
    EXPECT_EQ("late", Rest(copy.m_stream1));
    EXPECT_EQ("4", Rest(copy.m_stream4));
}

TEST(ProcessExceptionTest, CopiesAreMadeOfWhatCanBeChangedOnly) {
    EXPECT_TRUE((std::is_constructible_v<ProcessException, ProcessException&>));
    EXPECT_FALSE((std::is_constructible_v<ProcessException, const ProcessException&>));
}

TEST(ProcessExceptionTest, TextTravelsWithAThrownCopy) {
    ProcessException source;
    source.m_stream2 << "details";
    try {
        throw source;
    } catch (ProcessException& caught) {
        EXPECT_EQ("details", Rest(caught.m_stream2));
    }
}

TEST(ProcessExceptionTest, InterfaceNotExistIsThrownEmptyAndCopiedLikeItsBase) {
    try {
        throw InterfaceNotExistException();
    } catch (InterfaceNotExistException& caught) {
        EXPECT_EQ("",
                  caught.m_stream1.str() + caught.m_stream2.str() + caught.m_stream3.str() + caught.m_stream4.str());
        caught.m_stream3 << "AlarmSvc";
        InterfaceNotExistException copy(caught);
        EXPECT_EQ("AlarmSvc", copy.m_stream3.str());
    }
}

}  // namespace
}  // namespace NS_BUNDLEMGR1
