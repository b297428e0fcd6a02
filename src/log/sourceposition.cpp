#include "src/log/sourceposition.h"

#include <cstring>
#include <exception>
#include <utility>

#include "src/log/recordsource.h"
#include "src/log/recordview.h"

namespace NS_BUNDLEMGR1 {

namespace {

// All positions share a few locks, which a fork can take. Threads that log through different
// proxies mostly take different ones.
constexpr std::size_t kPositionMutexes = 16;
constexpr std::size_t kCacheLine = 64;

struct alignas(kCacheLine) PositionMutex {
    detail::Mutex mutex;
};

PositionMutex g_positionMutexes[kPositionMutexes];
std::atomic<std::size_t> g_positions{0};  // made so far

detail::Mutex& NextPositionMutex() {
    return g_positionMutexes[g_positions.fetch_add(1, std::memory_order_relaxed) % kPositionMutexes].mutex;
}

// Without memory the text becomes empty: the former one would be wrong.
void Replace(std::string& text, const char* newText) {
    try {
        text.assign(newText != nullptr ? newText : "");
    } catch (const std::exception&) {
        text.clear();
    }
}

}  // namespace

SourcePosition::SourcePosition() : m_mutex(NextPositionMutex()) {}

SourcePosition::~SourcePosition() = default;

SourcePosition::Place SourcePosition::PlaceOf(std::size_t source, unsigned long line) {
    return source == 0 || line > kMaxLine ? 0 : Place{source} << kLineBits | line;
}

// Null where there is none of them.
const SourcePosition::Source* SourcePosition::SourceAt(Place place) const {
    return place == 0 ? nullptr : m_sources[NumberOf(place) - 1].get();
}

void SourcePosition::Set(const char* file, unsigned long line) {
    if (file != nullptr && SetKnown(file, line)) return;
    const detail::Guard guard(m_mutex);
    Replace(m_names.file, file);
    m_nLine = line;
    m_place.store(PlaceOf(FindOrMakeSource(), line), std::memory_order_release);
}

// Most statements stand in a file of which the proxy has had one before. False for the others.
bool SourcePosition::SetKnown(const char* file, unsigned long line) {
    Place place = m_place.load(std::memory_order_acquire);
    const Source* const source = SourceAt(place);
    if (source == nullptr || line > kMaxLine) return false;
    const bool isSameFile = std::strcmp(source->names.file.c_str(), file) == 0;
    const std::size_t number = isSameFile ? NumberOf(place) : FindFile(source->group, file);
    if (number == 0) return false;
    const Place newPlace = PlaceOf(number, line);
    return place == newPlace || m_place.compare_exchange_strong(place, newPlace, std::memory_order_acq_rel);
}

// The number of a group's source; 0 where it is not remembered.
std::size_t SourcePosition::FindFile(std::size_t group, const char* file) const {
    if (group == 0) return 0;
    const std::size_t count = m_nSources.load(std::memory_order_acquire);
    const std::string_view name = file;
    for (std::size_t i = 0; i < count; ++i) {
        if (m_sources[i]->group == group && m_sources[i]->names.file == name) return i + 1;
    }
    return 0;
}

void SourcePosition::SetBundle(const char* name) {
    Rename(&Names::bundle, name);
}

void SourcePosition::SetService(const char* name) {
    Rename(&Names::service, name);
}

// File and line stay, which others may change meanwhile.
void SourcePosition::Rename(std::string Names::*name, const char* text) {
    const detail::Guard guard(m_mutex);
    Replace(m_names.*name, text);
    m_nGroup = FindGroup();
    Place place = m_place.load(std::memory_order_acquire);
    do {
        if (const Source* const source = SourceAt(place)) {
            Replace(m_names.file, source->names.file.c_str());
            m_nLine = place & kMaxLine;
        }
    } while (!m_place.compare_exchange_weak(place, PlaceOf(FindOrMakeSource(), m_nLine), std::memory_order_acq_rel));
}

bool SourcePosition::Take(RecordSource& room, RecordView& record) const {
    Place place = m_place.load(std::memory_order_acquire);
    if (place == 0) {
        const detail::Guard guard(m_mutex);
        place = m_place.load(std::memory_order_acquire);
        if (place == 0) {
            record.line = m_nLine;
            record.source = room.Take(m_names.bundle, m_names.service, m_names.file);
            return !record.source.empty();
        }
    }
    const Source* const source = SourceAt(place);
    record.source = {source->text.get(), source->size};
    record.line = place & kMaxLine;
    return true;
}

bool SourcePosition::TakeAt(const char* file, unsigned long line, RecordSource& room, RecordView& record) const {
    record.line = line;
    const Source* const source = SourceAt(m_place.load(std::memory_order_acquire));
    if (source != nullptr) {
        record.source = room.Take(source->names.bundle, source->names.service, file);
    } else {
        const detail::Guard guard(m_mutex);
        record.source = room.Take(m_names.bundle, m_names.service, file);
    }
    return !record.source.empty();
}

// Of the names; 0 where no source has them.
std::size_t SourcePosition::FindGroup() const {
    const std::size_t count = m_nSources.load(std::memory_order_relaxed);
    for (std::size_t i = 0; i < count; ++i) {
        const Names& names = m_sources[i]->names;
        if (names.bundle == m_names.bundle && names.service == m_names.service) return m_sources[i]->group;
    }
    return 0;
}

// The number of the source that the names make up; 0 where it cannot be remembered.
std::size_t SourcePosition::FindOrMakeSource() {
    const std::size_t number = FindFile(m_nGroup, m_names.file.c_str());
    return number != 0 ? number : MakeSource();
}

std::size_t SourcePosition::MakeSource() {
    const std::size_t count = m_nSources.load(std::memory_order_relaxed);
    const std::size_t size = RecordSource::SizeOf(m_names.bundle, m_names.service, m_names.file);
    if (count == kSources || size > kMaxSize) return 0;
    const std::size_t number = count + 1;
    const std::size_t group = m_nGroup != 0 ? m_nGroup : number;
    try {
        auto source = std::make_unique<Source>(Source{m_names, group, std::make_unique<char[]>(size), size});
        RecordSource::Put(m_names.bundle, m_names.service, m_names.file, source->text.get());
        m_sources[count] = std::move(source);
        m_nSources.store(number, std::memory_order_release);
        m_nGroup = group;
        return number;
    } catch (const std::exception&) {
        return 0;
    }
}

// All of them stay held until AfterFork; the analysis does not follow a loop.
void SourcePosition::BeforeFork() ZO_NO_THREAD_SAFETY_ANALYSIS {
    for (PositionMutex& position : g_positionMutexes) position.mutex.acquire();
}

void SourcePosition::AfterFork() ZO_NO_THREAD_SAFETY_ANALYSIS {
    for (PositionMutex& position : g_positionMutexes) position.mutex.release();
}

}  // namespace NS_BUNDLEMGR1
