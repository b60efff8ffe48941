// Import patches whose replacements are closures: a test decides in place what the plug-in's calls of the system and of
// the runtime do.
#pragma once

#include <memory>
#include <utility>
#include <vector>

#include "harness/ImportPatch.h"

namespace zd::test {

class CClosurePatches {
public:
    explicit CClosurePatches(HMODULE module) : m_module(module) {}
    ~CClosurePatches() { Restore(); }
    CClosurePatches(const CClosurePatches&) = delete;
    CClosurePatches& operator=(const CClosurePatches&) = delete;

    // From now on the module's calls of `name` run `body`, which gets the function called before as its first
    // argument. A function may be replaced several times. What `body` refers to must live until Restore.
    //
    //     patches.Replace<decltype(::fflush)>("fflush", [&](auto original, FILE* file) { return original(file); });
    template <class Signature, class Body>
    void Replace(const char* name, Body body) {
        using Replacement = CReplacement<Signature, Body>;
        Replacement::s_body = new Body(std::move(body));  // never freed: a thread may be in it at the end of the test
        Replacement::s_original = reinterpret_cast<Signature*>(ImportedAddress(m_module, name));
        m_patches.push_back(std::make_unique<CImportPatch>(m_module, name, &Replacement::Call));
    }

    // Gives every function back, the last one first.
    void Restore() {
        while (!m_patches.empty()) m_patches.pop_back();
    }

private:
    // A closure's type is its own, so that its static members belong to one replacement.
    template <class Signature, class Body>
    struct CReplacement;
    template <class Result, class... Arguments, class Body>
    struct CReplacement<Result(Arguments...), Body> {
        static inline Result (*s_original)(Arguments...) = nullptr;
        static inline Body* s_body = nullptr;
        static Result Call(Arguments... arguments) { return (*s_body)(s_original, arguments...); }
    };

    HMODULE m_module;
    std::vector<std::unique_ptr<CImportPatch>> m_patches;
};

}  // namespace zd::test
