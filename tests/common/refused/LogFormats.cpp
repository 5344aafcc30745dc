// Compiled for its syntax only, one case at a time: case 0 is accepted, every other is refused.
#include <string>

#include "common/Log.h"

void Case(const char* narrow, const wchar_t* wide, const void* pointer, long long number, double real) {
    using kvmpd::Log;
    using kvmpd::LogA;
#if KV_CASE == 0
    enum class Quality : unsigned { kLow };
    Log(3, L" %d %I64d %s %s %s %p %08X 100%%", number, number, wide, narrow, number, pointer, Quality::kLow);
    LogA(3, " %s %s", std::wstring(wide), std::string(narrow));
#elif KV_CASE == 1
    Log(3, L" %d %d", number);
#elif KV_CASE == 2
    Log(3, L" %d", number, number);
#elif KV_CASE == 3
    Log(3, L" %d", wide);
#elif KV_CASE == 4
    LogA(3, " %08X", pointer);
#elif KV_CASE == 5
    Log(3, L" %p", number);
#elif KV_CASE == 6
    Log(3, L" %s", pointer);
#elif KV_CASE == 7
    Log(3, L" %f", number);
#elif KV_CASE == 8
    LogA(3, " %*d", number);
#elif KV_CASE == 9
    Log(3, L" %n", pointer);
#elif KV_CASE == 10
    Log(3, L" %d", real);
#elif KV_CASE == 11
    Log(3, wide, number);
#elif KV_CASE == 12
    LogA(3, " %s");
#elif KV_CASE == 13
    LogA(3, " ends with %");
#endif
    static_cast<void>(real);
}
