#pragma once
// Whether a tick's app groups come from a process sample taken for that tick, or repeat the
// last one (processes are sampled only on some ticks; the ticks between reuse the groups).
// Rates such as CPU and disk go on counting over every tick's interval, while amounts
// measured over the process sample's own interval, such as energy, count once: on the tick
// that brought them.

namespace omnira {

enum class TickGroups { fresh, repeated };

}  // namespace omnira
