// The text of the range exception that a call throws, empty if it throws none. For tests.
#pragma once

#include <string>

#include "Mox/Exception.h"

template <class Call>
std::string thrown(Call const& call) {
  try {
    call();
  } catch (Mox::RangeException const& refusal) {
    return refusal.what();
  }
  return "";
}
