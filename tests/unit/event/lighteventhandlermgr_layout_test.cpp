// The layout of the classes: bundles in the field were compiled against it.
#include <cstddef>
#include <cstdint>
#include <cstring>

#include <gmock/gmock.h>

#include "lighteventhandlermgrtest.h"
#include "src/event/lightinternalmessage.h"

namespace NS_BUNDLEMGR1 {
namespace {

using test::CountedParam;
using test::Handler;

// The slot that a pointer to a virtual member function names (Itanium C++ ABI).
template <class Member>
std::size_t SlotOf(Member member) {
    std::uintptr_t word = 0;
    static_assert(sizeof(member) >= sizeof(word));
    std::memcpy(&word, &member, sizeof(word));
    EXPECT_EQ(1U, word % 2) << "not virtual";
    return (word - 1) / sizeof(void*);
}

const void* SlotContent(const void* object, std::size_t slot) {
    const void* const* table = nullptr;
    std::memcpy(&table, object, sizeof(table));
    return table[slot];
}

TEST(LightEventLayout, HandleLightEventIsTheHandlersFirstOwnSlot) {
    const std::size_t lastInherited = SlotOf(&ACE_Event_Handler::remove_reference);
    EXPECT_EQ(lastInherited + 1, SlotOf(&LightEventHandler::HandleLightEvent));

    int seenId = 0;
    LightEventParam* seenParam = nullptr;
    Handler handler([&](int eventId, LightEventParam* param) {
        seenId = eventId;
        seenParam = param;
    });
    LightEventHandler* const base = &handler;
    LightEventParam param;
    using Slot = void (*)(LightEventHandler*, int, LightEventParam*);
    reinterpret_cast<Slot>(const_cast<void*>(SlotContent(base, lastInherited + 1)))(base, 17, &param);
    EXPECT_EQ(17, seenId);
    EXPECT_EQ(&param, seenParam);
    EXPECT_EQ(sizeof(ACE_Event_Handler), sizeof(LightEventHandler));
}

TEST(LightEventLayout, AParameterIsItsTableAndItsFlag) {
    LightEventParam param;
    EXPECT_FALSE(param.m_bAutoDelete);
    EXPECT_TRUE(LightEventParam(true).m_bAutoDelete);
    EXPECT_EQ(sizeof(void*), static_cast<std::size_t>(reinterpret_cast<char*>(&param.m_bAutoDelete) -
                                                      reinterpret_cast<char*>(&param)));
    EXPECT_EQ(2 * sizeof(void*), sizeof(LightEventParam));

    // Slot 1 is the destructor that also frees.
    std::atomic<int> deletions{0};
    LightEventParam* const counted = new CountedParam(true, deletions);
    using Slot = void (*)(LightEventParam*);
    reinterpret_cast<Slot>(const_cast<void*>(SlotContent(counted, 1)))(counted);
    EXPECT_EQ(1, deletions);
}

TEST(LightEventLayout, TheManagerAddsNoSlotToTheTasks) {
    EXPECT_EQ(SlotOf(static_cast<int (ACE_Task_Base::*)(void*)>(&ACE_Task_Base::open)), SlotOf(&LightEventMgr::open));
    EXPECT_EQ(SlotOf(&ACE_Task_Base::close), SlotOf(&LightEventMgr::close));
    EXPECT_EQ(SlotOf(&ACE_Task_Base::svc), SlotOf(&LightEventMgr::svc));
}

TEST(LightEventLayout, AMessageCarriesWhatWasPosted) {
    std::atomic<int> deletions{0};
    auto* const param = new CountedParam(true, deletions);
    auto* const message = new LightInternalMessage({4, 5, param, true});
    EXPECT_EQ(4, message->m_nEventId);
    EXPECT_EQ(5, message->m_nExtra);
    EXPECT_EQ(param, message->m_pParam);
    EXPECT_TRUE(message->m_bAutoDelete);
    EXPECT_EQ(0U, message->total_size());
    EXPECT_LT(static_cast<void*>(&message->m_nEventId), static_cast<void*>(&message->m_nExtra));
    EXPECT_LT(static_cast<void*>(&message->m_nExtra), static_cast<void*>(&message->m_pParam));
    EXPECT_LT(static_cast<void*>(&message->m_pParam), static_cast<void*>(&message->m_bAutoDelete));

    const PostedEvent posted = message->Posted();
    EXPECT_EQ(4, posted.eventId);
    EXPECT_EQ(5, posted.extra);
    EXPECT_EQ(param, posted.param);
    EXPECT_TRUE(posted.isParamDeleted);
    message->release();
    EXPECT_EQ(0, deletions);
    delete param;
}

}  // namespace
}  // namespace NS_BUNDLEMGR1
