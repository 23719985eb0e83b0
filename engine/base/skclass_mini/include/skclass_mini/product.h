// Which host product this deployment belongs to: 0 = Stowline (main product),
// 1 = Vaultry (sibling). Read on every call from the DWORD "Product" under
// HKLM\SOFTWARE\Halvorn\Common, so a deployment (and a test) sets it in the
// registry; missing or unreadable means 0.
#pragma once
#include <skclass_mini/export.h>

SKCLASS_API int CMS_GetProd();
