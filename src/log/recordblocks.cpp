#include <bundlemgr/detail/recordblocks.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <new>
#include <string_view>
#include <utility>

#include "src/log/recordreader.h"
#include "src/log/recordview.h"
#include "src/platform/text.h"

namespace NS_BUNDLEMGR1 {

namespace {

// Of a block with what the C library's allocator adds to it. Larger ones would leave more of the
// last one unused.
constexpr std::size_t kBlockSize = 4096;
constexpr std::size_t kAllocatorSize = 16;

// Of one text; all of a record can be counted in 32 bits.
constexpr std::size_t kMaxText = UINT32_MAX / 8;
constexpr std::size_t kAlignment = alignof(std::uint64_t);
constexpr std::uint32_t kNoNames = UINT32_MAX;

// Before thread and source: how long each is.
struct Names {
    std::uint32_t thread;
    std::uint32_t source;

    std::size_t Bytes() const { return sizeof(Names) + std::size_t{thread} + source; }
};

// Before the text of a record.
struct Head {
    std::int64_t seconds;
    std::int64_t microseconds;
    std::uint64_t line;
    std::uint32_t text;   // bytes
    std::uint32_t names;  // where they are in the block
    std::int32_t level;
    std::uint32_t next;  // bytes from here to the next record
};

static_assert(alignof(Head) <= kAlignment);

const Head& HeadAt(const char* at) {
    return *std::launder(reinterpret_cast<const Head*>(at));
}

std::size_t Aligned(std::size_t bytes) {
    return (bytes + kAlignment - 1) / kAlignment * kAlignment;
}

std::string_view Take(const char*& at, std::size_t size) {
    return {std::exchange(at, at + size), size};
}

Names NamesOf(const RecordView& record) {
    return {static_cast<std::uint32_t>(record.thread.size()), static_cast<std::uint32_t>(record.source.size())};
}

bool AreThere(const char* at, const Names& names, const RecordView& record) {
    return std::memcmp(at, &names, sizeof names) == 0 &&
           std::memcmp(at + sizeof names, record.thread.data(), names.thread) == 0 &&
           std::memcmp(at + sizeof names + names.thread, record.source.data(), names.source) == 0;
}

void PutNames(char* at, const Names& names, const RecordView& record) {
    std::memcpy(at, &names, sizeof names);
    CopyText(record.source, CopyText(record.thread, at + sizeof names));
}

bool IsTooLong(const RecordView& record) {
    return std::max({record.thread.size(), record.source.size(), record.text.size()}) > kMaxText;
}

}  // namespace

// A record is its head, its text and, where they differ from those of the record before it, its
// names.
struct RecordBlocks::Block {
    Block* next;
    std::size_t capacity;
    std::size_t begin;    // of the oldest record that is left
    std::size_t end;      // of the latest
    std::uint32_t names;  // of the latest

    char* Data() { return reinterpret_cast<char*>(this + 1); }
    const char* Data() const { return reinterpret_cast<const char*>(this + 1); }

    static Block* Make(std::size_t bytes) {
        const std::size_t capacity = std::max(bytes, kBlockSize - kAllocatorSize - sizeof(Block));
        void* const place = ::operator new(sizeof(Block) + capacity, std::nothrow);
        return place == nullptr ? nullptr : new (place) Block{nullptr, capacity, 0, 0, kNoNames};
    }
};

bool RecordBlocks::Append(const RecordView& record) {
    if (IsTooLong(record)) return false;
    const Names names = NamesOf(record);
    const std::size_t size = sizeof(Head) + record.text.size();
    bool sharesNames =
        m_last != nullptr && m_last->names != kNoNames && AreThere(m_last->Data() + m_last->names, names, record);
    std::size_t needed = Aligned(size + (sharesNames ? 0 : names.Bytes()));
    if (m_last == nullptr || needed > m_last->capacity - m_last->end) {
        sharesNames = false;
        needed = Aligned(size + names.Bytes());
        if (!AddBlock(needed)) return false;
    }
    char* const at = m_last->Data() + m_last->end;
    if (!sharesNames) {
        m_last->names = static_cast<std::uint32_t>(m_last->end + size);
        PutNames(at + size, names, record);
    }
    const Head* const head = new (at) Head{record.time.sec(),
                                           record.time.usec(),
                                           record.line,
                                           static_cast<std::uint32_t>(record.text.size()),
                                           m_last->names,
                                           record.level,
                                           static_cast<std::uint32_t>(needed)};
    CopyText(record.text, at + sizeof(Head));
    m_last->end += head->next;
    ++m_nRecords;
    return true;
}

bool RecordBlocks::AddBlock(std::size_t bytes) {
    Block* const block = Block::Make(bytes);
    if (block == nullptr) return false;
    (m_last != nullptr ? m_last->next : m_first) = block;
    m_last = block;
    return true;
}

void RecordBlocks::PopFront() {
    --m_nRecords;
    m_first->begin += HeadAt(m_first->Data() + m_first->begin).next;
    if (m_nRecords == 0) {
        Clear();
    } else if (m_first->begin == m_first->end) {
        ::operator delete(std::exchange(m_first, m_first->next));
    }
}

void RecordBlocks::Clear() {
    while (m_first != nullptr) ::operator delete(std::exchange(m_first, m_first->next));
    m_last = nullptr;
    m_nRecords = 0;
}

void RecordBlocks::Swap(RecordBlocks& other) {
    std::swap(m_first, other.m_first);
    std::swap(m_last, other.m_last);
    std::swap(m_nRecords, other.m_nRecords);
}

ACE_Time_Value RecordBlocks::FirstTime() const {
    return RecordReader(*this).Record().time;
}

RecordReader::RecordReader(const RecordBlocks& blocks)
    : m_block(blocks.m_first), m_nAt(m_block != nullptr ? m_block->begin : 0), m_nLeft(blocks.m_nRecords) {
    if (m_nLeft > 0) Read();
}

void RecordReader::Next() {
    --m_nLeft;
    m_nAt += m_nSize;
    if (m_nLeft == 0) return;
    if (m_nAt == m_block->end) {
        m_block = m_block->next;
        m_nAt = m_block->begin;
    }
    Read();
}

void RecordReader::Read() {
    const char* at = m_block->Data() + m_nAt;
    const Head& head = HeadAt(at);
    Names sizes{};
    const char* names = m_block->Data() + head.names;
    std::memcpy(&sizes, names, sizeof sizes);
    at += sizeof head;
    names += sizeof sizes;
    m_record.level = head.level;
    m_record.time.sec(head.seconds);
    m_record.time.usec(head.microseconds);
    m_record.line = head.line;
    m_record.text = Take(at, head.text);
    m_record.thread = Take(names, sizes.thread);
    m_record.source = Take(names, sizes.source);
    m_nSize = head.next;
}

}  // namespace NS_BUNDLEMGR1
