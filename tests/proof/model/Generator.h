// Makes random sequences of operations that mostly make sense: it plays them on a model of its own meanwhile.
#pragma once

#include "harness/Random.h"
#include "Model.h"

namespace zd::test {

// How the files of a sequence are cut into fragments.
enum class EFiles {
    kSmall,  // found on the share with fragments of a few bytes, up to 40 of them
    kLarge,  // made here, with fragments of a mebibyte
};

struct Plan {
    Setup setup;
    EFiles files = EFiles::kSmall;
    std::int64_t steps = 400;
    std::int64_t restarts = 0;  // about so many in the sequence
    // Only what is to be there after a kill: no reading, no descriptors asked for, no reconnecting. Files of small
    // fragments are all there at the start.
    bool onlyChanges = false;
};

class CGenerator {
public:
    CGenerator(std::uint64_t seed, const Plan& plan);

    Script Make();

private:
    void Add(EOp op, std::array<std::int64_t, 6> args);
    void AddDirectories();
    void AddAny();
    void AddPlanted(std::int64_t name);
    void AddOpen(std::int64_t slot);
    void AddOnHandle(std::int64_t slot);
    void AddTransfer(std::int64_t slot, const ModelHandle& handle);
    void AddAppend(std::int64_t slot, const ModelHandle& handle);
    void AddMetadata(std::int64_t slot, const ModelHandle& handle);
    void AddRename(std::int64_t slot);

    std::int64_t AnySlot() { return m_random.Below(kSlots); }
    std::int64_t AnyName();
    std::int64_t AnyOffset(const ModelHandle& handle);
    std::int64_t AnyLength(const ModelHandle& handle);
    std::int64_t AnyFileTime();
    std::int64_t Largest(const ModelHandle& handle) const;

    static constexpr std::int64_t kSlots = 8;
    CRandom m_random;
    Plan m_plan;
    CModel m_model;
    Script m_script;
};

}  // namespace zd::test
