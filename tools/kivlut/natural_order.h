// The order in which a folder's frames form a sequence: names as a person reads them, f2 before
// f10.
#pragma once

#include <string>

namespace kivlut {

// Whether `a` comes before `b` with every run of digits compared as the number it spells (leading
// zeros aside) and everything else byte by byte. Runs of equal value ("f07", "f7") fall back to the
// plain byte order of the whole names, so that the order is strict and the same on every run.
bool NaturalLess(const std::string& a, const std::string& b);

}  // namespace kivlut
