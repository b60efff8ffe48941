#include "HalfDone.h"

#include <algorithm>
#include <optional>
#include <stdexcept>

#include "../model/Storage.h"

namespace zd::test {

namespace {

using Pieces = std::vector<std::optional<std::string>>;

[[noreturn]] void Refuse(const std::string& what) {
    throw std::runtime_error("half done: " + what);
}

// The stored fragments of a name, missing ones empty, up to the last that either model knows.
Pieces StoredPieces(CShare& share, const std::wstring& name, std::int64_t count) {
    Pieces pieces;
    for (std::int64_t i = 0; i < count; ++i) {
        const std::string path = share.StoragePath(name, i);
        const std::optional<std::int64_t> size = CStorage::SizeOf(path);
        pieces.push_back(size ? std::optional(CStorage::Bytes(path, 0, *size)) : std::nullopt);
    }
    if (CStorage::SizeOf(share.StoragePath(name, count))) Refuse("a fragment too many of " + Narrow(name));
    return pieces;
}

Pieces PiecesOf(const ModelObject& object) {
    Pieces pieces;
    const auto size = static_cast<std::size_t>(object.fragment);
    for (std::int64_t i = 0; i < object.Fragments(); ++i) {
        pieces.emplace_back(object.content.substr(static_cast<std::size_t>(i) * size, size));
    }
    return pieces;
}

std::optional<std::string> At(const Pieces& pieces, std::size_t index) {
    return index < pieces.size() ? pieces[index] : std::nullopt;
}

// Gone in ascending order: none of the first ones, and the rest as it was.
bool IsRestOf(const Pieces& found, const Pieces& old, std::size_t from = 0) {
    std::size_t first = from;
    while (first < old.size() && !At(found, first)) ++first;
    for (std::size_t i = first; i < std::max(old.size(), found.size()); ++i) {
        if (At(found, i) != At(old, i)) return false;
    }
    return true;
}

bool IsSame(const Pieces& found, const Pieces& old) {
    for (std::size_t i = 0; i < std::max(found.size(), old.size()); ++i) {
        if (At(found, i) != At(old, i)) return false;
    }
    return true;
}

// One text of pieces that are full but for the last.
std::string Joined(const Pieces& pieces, std::int64_t fragment) {
    std::string whole;
    for (std::size_t i = 0; i < pieces.size(); ++i) {
        if (!pieces[i]) {
            if (std::any_of(pieces.begin() + static_cast<std::ptrdiff_t>(i), pieces.end(),
                            [](const auto& piece) { return piece.has_value(); })) {
                Refuse("a fragment is missing before another one");
            }
            break;
        }
        if (whole.size() != i * static_cast<std::size_t>(fragment)) Refuse("a short fragment before another one");
        whole += *pieces[i];
    }
    return whole;
}

// Old bytes, then zeros; inside [from, to) new ones up to some place.
void CheckGrown(const std::string& found, const std::string& old, const std::string& wanted, std::size_t from,
                std::size_t to) {
    if (found.size() < std::min(old.size(), wanted.size()) || found.size() > std::max(old.size(), wanted.size())) {
        Refuse("the size is neither old nor new nor between");
    }
    bool isNew = true;
    for (std::size_t i = 0; i < found.size(); ++i) {
        const char before = i < old.size() ? old[i] : '\0';
        const bool inside = i >= from && i < to;
        if (inside && found[i] != wanted[i]) isNew = false;
        if (inside && isNew ? found[i] != wanted[i] : found[i] != before) {
            Refuse("byte " + std::to_string(i) + " is neither old nor new");
        }
    }
}

void CheckShrunk(const Pieces& found, const Pieces& old, const Pieces& wanted) {
    const std::size_t last = wanted.size() - 1;
    for (std::size_t i = 0; i < last; ++i) {
        if (At(found, i) != old[i]) Refuse("a fragment before the new end changed");
    }
    if (At(found, last) != wanted[last]) Refuse("the new last fragment is not cut, but something changed");
    std::size_t left = found.size();
    while (left > last + 1 && !At(found, left - 1)) --left;
    for (std::size_t i = last + 1; i < left; ++i) {
        if (At(found, i) != At(old, i)) Refuse("fragments are not gone from the last one on");
    }
}

void CheckSecurity(CShare& share, const ModelObject& object, const std::string& other) {
    const std::string path = share.StoragePath(object.name);
    if (!CStorage::SizeOf(path)) return;
    const std::string text = CStorage::DescriptorOf(path);
    const auto fits = [&](const std::string& sddl) {
        return text.empty() || sddl.empty() ? text == sddl
                                            : SddlOf(CDescriptor(text).Raw()) == SddlOf(CDescriptor(sddl).Raw());
    };
    if (!fits(object.descriptor) && !fits(other)) Refuse("the descriptor is neither old nor new: " + text);
}

void CheckAttributes(CShare& share, const ModelObject& object, std::uint64_t other) {
    const Outcome information = share.PathInformation(object.name);
    if (information.code != 0) return;
    const std::uint64_t found = information.information.attributes;
    if (found != object.attributes && found != other) Refuse("the attributes are neither old nor new");
}

ModelPointer ObjectOf(const CModel& model, const Step& step) {
    const auto handle = model.Handles().find(step.args[0]);
    return handle == model.Handles().end() ? nullptr : handle->second.object;
}

const std::wstring& NameAt(std::int64_t index) {
    return ModelNames()[static_cast<std::size_t>(index)];
}

void CheckChangedBytes(const Step& step, const Pieces& found, const ModelObject& old, const ModelObject& wanted) {
    if (wanted.Size() < old.Size()) return CheckShrunk(found, PiecesOf(old), PiecesOf(wanted));
    const auto from = static_cast<std::size_t>(step.op == EOp::kSize    ? old.Size()
                                               : step.op == EOp::kWrite ? step.args[1]
                                                                        : step.args[2]);
    const auto length = static_cast<std::size_t>(step.op == EOp::kSize    ? 0
                                                 : step.op == EOp::kWrite ? step.args[2]
                                                                          : step.args[4]);
    CheckGrown(Joined(found, wanted.fragment), old.content, wanted.content, from, from + length);
}

void CheckOpened(CShare& share, const Step& step, const CModel& before, const ModelObject& wanted) {
    const std::wstring& name = NameAt(step.args[1]);
    const ModelPointer old = before.Find(name);
    if (old == nullptr) {
        // It may not have come into being.
        const std::optional<std::int64_t> size = CStorage::SizeOf(share.StoragePath(name));
        if (size && *size != 0) Refuse("a new file has bytes");
        if (size) CheckSecurity(share, wanted, std::string());
        return CheckAttributes(share, wanted, wanted.attributes);
    }
    const Pieces found = StoredPieces(share, name, old->Fragments());
    if (At(found, 0) != std::string() || !IsRestOf(found, PiecesOf(*old), 1)) {
        Refuse("an emptied file is neither as it was nor losing its fragments in order");
    }
    CheckSecurity(share, wanted, wanted.descriptor);
}

void CheckRenamed(CShare& share, const Step& step, const ModelObject& source, const CModel& before) {
    const std::wstring& target = NameAt(step.args[1]);
    if (source.directory) return;  // old and new were looked at before
    const ModelPointer replaced = before.Find(target);
    const Pieces old = PiecesOf(source);
    const std::int64_t most =
        std::max(source.Fragments(), replaced == nullptr || replaced->directory ? 1 : replaced->Fragments());
    const Pieces here = StoredPieces(share, source.name, source.Fragments());
    const Pieces there = StoredPieces(share, target, most);
    const bool stands = replaced != nullptr && !replaced->directory && IsRestOf(there, PiecesOf(*replaced));
    if (IsSame(here, old) && (stands || IsSame(there, {}))) return CheckSecurity(share, source, source.descriptor);
    for (std::size_t i = 0; i < old.size(); ++i) {
        const bool moved = !At(here, i);
        if (moved ? At(there, i) != old[i] : At(here, i) != old[i] || At(there, i)) Refuse("a fragment is lost");
        if (moved && i > 0 && At(here, i - 1)) Refuse("fragments do not move in order");
    }
    ModelObject at = source;
    if (!At(here, 0)) at.name = target;
    CheckSecurity(share, at, source.descriptor);
    CheckAttributes(share, at, source.attributes);
}

}  // namespace

std::vector<std::wstring> NamesTouched(const CModel& before, const CModel& after, const Step& step) {
    std::vector<std::wstring> names;
    if (const ModelPointer object = ObjectOf(before, step)) names.push_back(object->name);
    if (const ModelPointer object = ObjectOf(after, step)) names.push_back(object->name);
    if (step.op == EOp::kPlant) names.push_back(NameAt(step.args[0]));
    if (step.op == EOp::kOpen || step.op == EOp::kOpenDir || step.op == EOp::kRename) {
        names.push_back(NameAt(step.args[1]));
    }
    return names;
}

void CheckHalfDone(CShare& share, const CModel& before, const CModel& after, const Step& step) {
    const ModelPointer old = ObjectOf(before, step);
    const ModelPointer wanted = ObjectOf(after, step);
    switch (step.op) {
        case EOp::kOpen:
        case EOp::kOpenDir:
            return CheckOpened(share, step, before, *wanted);
        case EOp::kWrite:
        case EOp::kAppend:
        case EOp::kSize:
            CheckChangedBytes(step, StoredPieces(share, old->name, std::max(old->Fragments(), wanted->Fragments())),
                              *old, *wanted);
            CheckAttributes(share, *old, old->attributes);
            return CheckSecurity(share, *old, old->descriptor);
        case EOp::kClose:
            if (!IsRestOf(StoredPieces(share, old->name, old->Fragments()), PiecesOf(*old))) {
                Refuse("a removed file does not lose its fragments in order");
            }
            return;
        case EOp::kRename:
            return CheckRenamed(share, step, *old, before);
        case EOp::kBasic:
            CheckAttributes(share, *old, wanted->attributes);
            return CheckSecurity(share, *old, old->descriptor);
        default:
            Refuse("this operation happens wholly or not at all");
    }
}

}  // namespace zd::test
