// Takes back what was begun, unless it is kept:
//
//     CUndo undo([&] { RemoveWhatWasMade(); });
//     ...                                         // may throw
//     undo.Keep();
//
// The action runs while an exception is on its way, so it lets none out itself, and keeps the thread's errors where it
// could change them.
#pragma once

#include <utility>

#include "base/ThreadAnnotations.h"

namespace zd {

template <class Action>
class CUndo {
public:
    [[nodiscard]] explicit CUndo(Action action) noexcept : m_action(std::move(action)) {}
    ~CUndo() ZD_UNDER_ANOTHERS {
        if (!m_isKept) m_action();
    }
    CUndo(const CUndo&) = delete;
    CUndo& operator=(const CUndo&) = delete;

    void Keep() noexcept { m_isKept = true; }

private:
    Action m_action;
    bool m_isKept = false;
};

}  // namespace zd
