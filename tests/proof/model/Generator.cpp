#include "Generator.h"

#include <algorithm>

namespace zd::test {

namespace {

constexpr std::int64_t kMegabyte = 1048576;
constexpr std::int64_t kMostFragments = 40;
constexpr int kPlantedFirst = 12;
constexpr std::int64_t kLargestSmall = 6000;
constexpr std::int64_t kLargestLarge = 6 * kMegabyte;
constexpr std::int64_t kFileTimeOf1970 = 116444736000000000;

}  // namespace

CGenerator::CGenerator(std::uint64_t seed, const Plan& plan)
    // Whose descriptor is invented makes no difference to which steps make sense.
    : m_random(seed), m_plan(plan), m_model(plan.setup, "S-1-5-18"), m_script{plan.setup, {}} {}

void CGenerator::Add(EOp op, std::array<std::int64_t, 6> args) {
    const Step step{op, args};
    if (!m_model.Apply(step).skipped) m_script.steps.push_back(step);
}

Script CGenerator::Make() {
    AddDirectories();
    for (int i = 0; m_plan.onlyChanges && i < kPlantedFirst; ++i) AddPlanted(AnyName());
    while (static_cast<std::int64_t>(m_script.steps.size()) < m_plan.steps) AddAny();
    return m_script;
}

void CGenerator::AddDirectories() {
    for (std::int64_t name = 1; name < kDirectoryNames; ++name) {
        if (m_random.OneIn(4)) continue;
        Add(EOp::kOpenDir, {0, name, 2, FILE_ATTRIBUTE_DIRECTORY});
        Add(EOp::kRelease, {0});
    }
}

std::int64_t CGenerator::AnyName() {
    const auto count = static_cast<std::int64_t>(ModelNames().size());
    // Few names, so that they are met again.
    return m_random.OneIn(12) ? m_random.Below(count) : kDirectoryNames + m_random.Below(count - kDirectoryNames);
}

void CGenerator::AddAny() {
    const std::int64_t slot = AnySlot();
    if (m_plan.restarts > 0 && m_random.OneIn(m_plan.steps / m_plan.restarts)) {
        return Add(EOp::kRestart, {m_random.Below(2)});
    }
    if (!m_plan.onlyChanges) {
        if (m_random.OneIn(150)) return Add(EOp::kReconnect, {m_random.Below(2)});
        if (m_random.OneIn(15)) return Add(EOp::kPath, {AnyName()});
    }
    if (!m_model.Handles().contains(slot)) return AddOpen(slot);
    AddOnHandle(slot);
}

void CGenerator::AddPlanted(std::int64_t name) {
    const auto fragment = m_random.Any<std::int64_t>({1, 3, 7, 16, 37, 64, 150});
    // Mostly few fragments, because each costs time.
    const std::int64_t fragments = 1 + m_random.Below(1 + m_random.Below(kMostFragments - 1));
    const std::int64_t size = fragment + 1 + m_random.Below(fragment * fragments);
    Add(EOp::kPlant, {name, fragment, size, m_random.Below(1000)});
}

void CGenerator::AddOpen(std::int64_t slot) {
    if (m_random.OneIn(6)) {
        return Add(EOp::kOpenDir,
                   {slot, m_random.OneIn(8) ? AnyName() : m_random.Below(kDirectoryNames),
                    m_random.Any<std::int64_t>({1, 1, 1, 3, 2, 0, 4}), FILE_ATTRIBUTE_DIRECTORY | m_random.Below(4)});
    }
    const std::int64_t name = AnyName();
    if (m_plan.files == EFiles::kSmall && !m_plan.onlyChanges && m_random.OneIn(2)) AddPlanted(name);
    const auto how = m_random.Any<std::int64_t>({1, 1, 1, 1, 1, 1, 3, 3, 3, 3, 2, 2, 0, 4, 5});
    const auto access = m_random.Any<std::int64_t>({3, 3, 3, 3, 2, 4, 1, 1, 0});
    const auto attributes = m_random.Any<std::int64_t>(
        {0x80, 0x80, 0x20, 0x21, 0x6, 0x100, 0x2000, 0x800, 0x4000080, 0x8000080, 0x2000080, 0x400});
    const auto descriptors = static_cast<std::int64_t>(ModelDescriptors().size());
    Add(EOp::kOpen, {slot, name, how, access, attributes, m_random.OneIn(2) ? 0 : m_random.Below(descriptors)});
}

void CGenerator::AddOnHandle(std::int64_t slot) {
    const ModelHandle& handle = m_model.Handles().at(slot);
    const std::int64_t kind = m_random.Below(100);
    if (kind < 10) return Add(EOp::kRelease, {slot});
    if (kind < 16) return Add(EOp::kClose, {slot, 0});
    if (kind < 18) return Add(EOp::kClose, {slot, 1});
    if (kind < 24) return AddRename(slot);
    if (kind < 36) return AddMetadata(slot, handle);
    if (handle.object->directory && !m_random.OneIn(10)) return Add(EOp::kList, {slot});
    AddTransfer(slot, handle);
}

std::int64_t CGenerator::Largest(const ModelHandle& handle) const {
    if (m_plan.files == EFiles::kLarge) return kLargestLarge;
    return std::min(kLargestSmall, kMostFragments * std::max<std::int64_t>(1, handle.fragment));
}

std::int64_t CGenerator::AnyOffset(const ModelHandle& handle) {
    const std::int64_t size = handle.object->Size();
    const std::int64_t fragment = std::max<std::int64_t>(1, handle.fragment);
    switch (m_random.Below(6)) {
        case 0:
            return 0;
        case 1:
            return size;
        case 2:
            return m_random.Below(size + 1);
        case 3:
            return std::max<std::int64_t>(0, fragment * m_random.Below(size / fragment + 2) + m_random.Below(5) - 2);
        case 4:
            return size + m_random.Below(std::min<std::int64_t>(fragment * 2, 3 * kMegabyte));
        default:
            return std::max<std::int64_t>(0, size - m_random.Below(std::min<std::int64_t>(fragment * 2, 70000)));
    }
}

std::int64_t CGenerator::AnyLength(const ModelHandle& handle) {
    const std::int64_t fragment = std::max<std::int64_t>(1, handle.fragment);
    if (m_plan.files == EFiles::kLarge) {
        return m_random.OneIn(10) ? m_random.Below(kMegabyte * 5 / 2) : m_random.Below(40000);
    }
    const std::int64_t most = std::min<std::int64_t>(fragment * 5, 600);
    return m_random.OneIn(12) ? m_random.Any<std::int64_t>({0, 1, most}) : 1 + m_random.Below(most);
}

void CGenerator::AddTransfer(std::int64_t slot, const ModelHandle& handle) {
    const std::int64_t kind = m_random.Below(100);
    const std::int64_t at = AnyOffset(handle);
    const std::int64_t length = AnyLength(handle);
    const std::int64_t room = std::max<std::int64_t>(0, Largest(handle) - at);
    if (kind < 30 && !m_plan.onlyChanges) {
        Add(EOp::kRead, {slot, at, m_random.OneIn(20) ? Largest(handle) : length});
    } else if (kind < 65) {
        Add(EOp::kWrite, {slot, at, std::min(length, room), m_random.Below(100000)});
    } else if (kind < 80) {
        const std::int64_t size = m_random.OneIn(2) ? at : m_random.Below(Largest(handle));
        Add(EOp::kSize, {slot, std::min(size, Largest(handle))});
    } else if (kind < 93) {
        AddAppend(slot, handle);
    } else if (!m_plan.onlyChanges) {
        Add(EOp::kInfo, {slot});
    }
}

void CGenerator::AddAppend(std::int64_t slot, const ModelHandle& handle) {
    const std::int64_t other = m_random.OneIn(3) ? slot : AnySlot();
    const auto source = m_model.Handles().find(other);
    if (source == m_model.Handles().end()) return;
    const std::int64_t size = source->second.object->Size();
    const std::int64_t from = m_random.Below(size + 1);
    const std::int64_t at = m_random.OneIn(2) ? handle.object->Size() : AnyOffset(handle);
    const std::int64_t length = std::min({size - from, AnyLength(handle), Largest(handle) - at});
    if (length >= 0) Add(EOp::kAppend, {slot, other, at, from, length});
}

std::int64_t CGenerator::AnyFileTime() {
    if (m_random.OneIn(5)) return 0;
    // Whole seconds and others, from 1971 to 2033.
    const std::int64_t seconds = 40000000 + m_random.Below(1960000000);
    return kFileTimeOf1970 + seconds * 10000000 + (m_random.OneIn(2) ? 0 : m_random.Below(10000000));
}

void CGenerator::AddMetadata(std::int64_t slot, const ModelHandle& handle) {
    const std::int64_t descriptor = 1 + m_random.Below(static_cast<std::int64_t>(ModelDescriptors().size()) - 1);
    const std::int64_t kind = m_random.Below(10);
    if (kind < 5) {
        auto attributes = m_random.Any<std::int64_t>({0, 0x20, 0x21, 0x2, 0x80, 0x100, 0x2006, 0x400, 0x10020});
        if (handle.object->directory && attributes != 0) attributes |= FILE_ATTRIBUTE_DIRECTORY;
        const bool times = m_random.OneIn(2);
        const std::int64_t access = times ? AnyFileTime() : 0;
        Add(EOp::kBasic, {slot, attributes, access, times ? AnyFileTime() : 0});
    } else if (kind < 8 || m_plan.onlyChanges) {
        Add(EOp::kSetSecurity, {slot, descriptor});
    } else {
        Add(EOp::kGetSecurity, {slot});
    }
}

void CGenerator::AddRename(std::int64_t slot) {
    Add(EOp::kRename, {slot, AnyName(), m_random.Below(2)});
}

}  // namespace zd::test
