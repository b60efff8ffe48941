// Compares the share with its model. Every difference is a std::runtime_error that tells it.
#pragma once

#include <map>

#include "Model.h"
#include "Share.h"

namespace zd::test {

class CChecker {
public:
    CChecker(CShare& share, const CModel& model, const Setup& setup);

    // What a step brought, and the bytes that it touched.
    void CheckStep(const Step& step, const Expected& expected, const Outcome& outcome);
    // Every object, through the plug-in and past it, and every directory.
    void CheckAll();
    // The same without the objects of these names and what is below them.
    void CheckAllBut(const std::vector<std::wstring>& names);
    // Nothing is open any more: the storage has got everything back (known of the double only).
    void CheckNothingOpen();

private:
    void CheckInformation(const FileInformation& information, const ModelObject& object, std::int64_t size,
                          bool timesJustSet);
    void CheckShownName(const Step& step, const Outcome& outcome, const ModelObject& object);
    void CheckTouched(const Step& step, const Expected& expected);
    void CheckShape(const ModelObject& object, bool all);
    void CheckStoredBytes(const ModelObject& object, std::int64_t from, std::int64_t to);
    void CheckEntries(const std::vector<DirectoryEntry>& entries, const ListedEntries& expected);
    void CheckObject(const ModelObject& object);
    void CheckDirectory(const std::wstring& directory);
    void CheckCreationTime(std::uint64_t time, const ModelObject& object);

    bool IsLeftOut(const std::wstring& name) const;
    bool IsPartOfLeftOut(const std::wstring& directory, const std::string& stored) const;

    CShare& m_share;
    const CModel& m_model;
    bool m_localEngine;
    std::uint64_t m_begun;                            // FILETIME
    std::map<ModelPointer, std::uint64_t> m_created;  // first seen creation times
    std::vector<std::wstring> m_leftOut;
};

}  // namespace zd::test
