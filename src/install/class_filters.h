#pragma once

#include <ntifs.h>

#include "support/text.h"

/// A setup class that the driver filters: its key, and the list in which the driver's name stands.
struct ClassFilter {
    UNICODE_STRING keyPath;
    UNICODE_STRING valueName;
};

#define CLASS_KEY(guid) literal(L"\\REGISTRY\\MACHINE\\SYSTEM\\CurrentControlSet\\Control\\Class\\" guid)

/// The nine classes, in the order in which they are registered. The GUIDs keep exactly this letter case.
inline constexpr ClassFilter classFilters[] = {
    {CLASS_KEY(L"{36FC9E60-C465-11CF-8056-444553540000}"), literal(L"LowerFilters")}, // USB controllers and hubs
    {CLASS_KEY(L"{eec5ad98-8080-425f-922a-dabf3de3f69a}"), literal(L"LowerFilters")}, // portable devices
    {CLASS_KEY(L"{745a17a0-74d3-11d0-b6fe-00a0c90f57da}"), literal(L"LowerFilters")}, // human interface devices
    {CLASS_KEY(L"{6bdd1fc6-810f-11d0-bec7-08002be2092f}"), literal(L"LowerFilters")}, // imaging devices
    {CLASS_KEY(L"{4d36e97b-e325-11ce-bfc1-08002be10318}"), literal(L"LowerFilters")}, // storage adapters
    {CLASS_KEY(L"{50dd5230-ba8a-11d1-bf5d-0000f805f530}"), literal(L"LowerFilters")}, // smart-card readers
    {CLASS_KEY(L"{88BAE032-5A81-49f0-BC3D-A4FF138216D6}"), literal(L"LowerFilters")}, // USB devices
    {CLASS_KEY(L"{4d36e972-e325-11ce-bfc1-08002be10318}"), literal(L"LowerFilters")}, // network adapters
    {CLASS_KEY(L"{4d36e967-e325-11ce-bfc1-08002be10318}"), literal(L"UpperFilters")}, // disk drives
};

#undef CLASS_KEY
