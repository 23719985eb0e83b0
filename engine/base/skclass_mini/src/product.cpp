#include <skclass_mini/product.h>

#include <skclass_mini/configuration.h>

int CMS_GetProd() {
    // Read on every call: a deployment or a test may change it while we run.
    Configuration settings;
    if (!settings.Open(Configuration::OpenExisting, L"SOFTWARE\\Halvorn\\Common", L"", Configuration::Read)) {
        return 0;
    }
    return settings.LoadDWORD(L"Product", 0ul) == 1 ? 1 : 0;
}
