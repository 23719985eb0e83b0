#include <gtest/gtest.h>
#include <windows.h>
#include <stdarg.h>
#include <stdio.h>
static int fmt(wchar_t* b, size_t n, const wchar_t* f, ...) { va_list a; va_start(a,f); int r=_vsnwprintf(b,n,f,a); va_end(a); return r; }
TEST(Probe, Runs) { wchar_t b[100]; fmt(b,100,L"%s|%I64u|%ls", L"wide", (unsigned long long)5, L"x"); EXPECT_STREQ(b, L"wide|5|x"); }
