/// In front of every rewritten source. One mutant, or none, is switched on by the environment when the program starts.
#pragma once

#include <type_traits>

extern int vexa_active_mutant;
extern unsigned char* vexa_reached_mutants;

/// What the compiler works out for itself is never switched.
constexpr bool Mutant(int number) {
    if (std::is_constant_evaluated()) return false;
    vexa_reached_mutants[number] = 1;
    return number == vexa_active_mutant;
}

/// For the values of tables, members and globals: keeps the compiler from working them out.
inline bool InitialMutant(int number) { return Mutant(number); }

// A table whose rows can be switched is no constant any more; what must hold of it the ordinary build has checked.
#define static_assert(...) static_assert(true)
