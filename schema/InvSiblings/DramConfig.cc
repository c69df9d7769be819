#include "InvSiblings/DramConfig.h"

namespace Hardware::Sand {

Mox::String8 valueToStrep(DramConfig const& config) {
  Mox::String8 text;
  for (unsigned char i = 0; i < DramConfig::interfaces; ++i) {
    if (!config.used(i)) continue;
    if (!text.empty()) text += ":";
    text += Mox::valueToStrep(i);
  }
  return text.empty() ? "none" : text;
}

DramConfig sequenceToValue(Mox::String8::IteratorConst& pos, Mox::String8::IteratorConst const& end,
                           DramConfig*) {
  Mox::String8::IteratorConst next(pos);
  auto const token = Mox::sequenceToValue(next, end, static_cast<Mox::String8*>(nullptr));
  DramConfig config;
  if (token != "none") {
    Mox::String8::IteratorConst digit(token, 0);
    Mox::String8::IteratorConst const stop(token, static_cast<int>(token.length()));
    for (;; ++digit) {
      auto const interface =
          Mox::sequenceToValue(digit, stop, static_cast<DramInterfaceId*>(nullptr));
      config.usedIs(interface, true);
      if (digit == stop) break;
      if (*digit != ':') Mox::cannotConvert(pos, next, typeid(DramConfig));
    }
  }
  pos = next;
  return config;
}

}  // namespace Hardware::Sand
