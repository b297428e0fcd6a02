#include "src/base/converters.h"

#include <cstring>
#include <memory>
#include <utility>

#include <pthread.h>

namespace NS_BUNDLEMGR1 {

namespace {

constexpr std::size_t kSmallBuffer = 512;  // for a name, or a line of text

void ReplaceEachByte(const char*, std::size_t count, void (*write)(const unsigned int*, std::size_t, void*),
                     void* writeArg, void*) {
    const unsigned int mark = '?';
    for (std::size_t i = 0; i < count; ++i) write(&mark, 1, writeArg);
}

void ReplaceCharacter(unsigned int, void (*write)(const char*, std::size_t, void*), void* writeArg, void*) {
    write("?", 1, writeArg);
}

// The directions that a thread has used lately.
struct Recent {
    static constexpr std::size_t kDirections = 4;

    Converters* directions[kDirections];
    std::size_t next;
};

thread_local Recent t_recent{};

void Remember(Converters& converters) {
    t_recent.directions[t_recent.next] = &converters;
    t_recent.next = (t_recent.next + 1) % Recent::kDirections;
}

std::size_t NumberOfThisThread() {
    static std::atomic<std::size_t> s_next{0};
    static thread_local const std::size_t t_number = s_next.fetch_add(1, std::memory_order_relaxed);
    return t_number;
}

[[maybe_unused]] const int g_forkHandlers =
    pthread_atfork(&Converters::BeforeFork, &Converters::AfterFork, &Converters::AfterFork);

}  // namespace

detail::Mutex Converters::s_mutex;
Converters::Directions* Converters::s_directions = nullptr;

Converter::Converter(const std::string& from, const std::string& to)
    : m_handle(libiconv_open(to.c_str(), from.c_str())) {
    if (!IsOpen()) return;
    iconv_fallbacks fallbacks = {ReplaceEachByte, ReplaceCharacter, nullptr, nullptr, nullptr};
    libiconvctl(m_handle, ICONV_SET_FALLBACKS, &fallbacks);
}

Converter::~Converter() {
    if (IsOpen()) libiconv_close(m_handle);
}

bool Converter::Run(const std::string& in, std::string& out) const {
    const std::size_t size = (in.size() + 1) * 2;
    char small[kSmallBuffer];
    const std::unique_ptr<char[]> large(size > sizeof small ? new char[size] : nullptr);
    char* const buffer = large != nullptr ? large.get() : small;
    char* inNext = const_cast<char*>(in.data());
    std::size_t inLeft = in.size();
    char* outNext = buffer;
    std::size_t outLeft = size;
    if (libiconv(m_handle, &inNext, &inLeft, &outNext, &outLeft) == static_cast<std::size_t>(-1)) return false;
    // The buffer may be full to the last byte, so the first NUL is looked for inside it.
    const std::size_t written = size - outLeft;
    const char* const nul = static_cast<const char*>(std::memchr(buffer, '\0', written));
    out.assign(buffer, nul != nullptr ? static_cast<std::size_t>(nul - buffer) : written);
    return true;
}

Converters::Converters(std::string from, std::string to) : m_from(std::move(from)), m_to(std::move(to)) {}

Converters* Converters::Find(const std::string& from, const std::string& to) {
    for (Converters* const converters : t_recent.directions) {
        if (converters != nullptr && converters->IsOf(from, to)) return converters;
    }
    Converters* const known = FindKnown(from, to);
    if (known != nullptr) Remember(*known);
    return known;
}

Converters* Converters::FindKnown(const std::string& from, const std::string& to) {
    const detail::Guard guard(s_mutex);
    if (s_directions == nullptr) return nullptr;
    const auto targets = s_directions->find(from);
    if (targets == s_directions->end()) return nullptr;
    const auto known = targets->second.find(to);
    return known != targets->second.end() ? &known->second : nullptr;
}

Converters& Converters::Get(const std::string& from, const std::string& to) {
    const detail::Guard guard(s_mutex);
    if (s_directions == nullptr) s_directions = new Directions;
    return (*s_directions)[from].try_emplace(to, from, to).first->second;
}

Converter* Converters::Take() {
    const std::size_t mine = NumberOfThisThread();
    for (std::size_t i = 0; i < kSlots; ++i) {
        std::atomic<Converter*>& slot = m_slots[(mine + i) % kSlots].converter;
        if (slot.load(std::memory_order_relaxed) == nullptr) continue;
        Converter* const converter = slot.exchange(nullptr, std::memory_order_acquire);
        if (converter != nullptr) return converter;
    }
    const detail::Guard guard(s_mutex);
    Converter* const converter = m_others;
    if (converter != nullptr) m_others = converter->m_next;
    return converter;
}

void Converters::GiveBack(Converter* converter) {
    const std::size_t mine = NumberOfThisThread();
    for (std::size_t i = 0; i < kSlots; ++i) {
        std::atomic<Converter*>& slot = m_slots[(mine + i) % kSlots].converter;
        Converter* none = slot.load(std::memory_order_relaxed);
        if (none == nullptr && slot.compare_exchange_strong(none, converter, std::memory_order_release)) return;
    }
    const detail::Guard guard(s_mutex);
    converter->m_next = m_others;
    m_others = converter;
}

// The mutex stays held until AfterFork.
void Converters::BeforeFork() {
    s_mutex.acquire();
}

void Converters::AfterFork() {
    s_mutex.release();
}

}  // namespace NS_BUNDLEMGR1
