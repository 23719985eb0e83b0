#pragma once
#if defined(SKCLASS_MINI_BUILD)
#define SKCLASS_API __declspec(dllexport)
#else
#define SKCLASS_API __declspec(dllimport)
#endif
