// What a killed process may leave of the one operation that it had not acknowledged.
#pragma once

#include "../model/Model.h"
#include "../model/Share.h"

namespace zd::test {

// The names that the step may have changed something of.
std::vector<std::wstring> NamesTouched(const CModel& before, const CModel& after, const Step& step);

// The step has happened in part: between the model before it and the model after it. What may be seen then:
//   write, append   the bytes from the start of the range on are new up to some place and old behind it; a gap before
//                   the range is zero as far as the file goes; the size is between the two; at the end there may be an
//                   empty fragment
//   size            growing: a size between the two, zeros; shrinking: the fragment that becomes the last one is cut,
//                   and the later ones are gone from the last one on
//   open            a new file or directory is there without its descriptor yet; an emptied file has lost its first
//                   fragment's bytes and then the others in ascending order
//   close, remove   fragments are gone in ascending order
//   rename          with replacing, the target is gone in part or whole and the file is where it was; or the target is
//                   gone and the fragments have moved in ascending order
//   basic           the attributes are set and the times are not
// A descriptor, attributes and each pair of times are old or new, never anything else. Throws std::runtime_error where
// the state is none of these.
void CheckHalfDone(CShare& share, const CModel& before, const CModel& after, const Step& step);

}  // namespace zd::test
