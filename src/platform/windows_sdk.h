#pragma once

// The one place that includes the Windows headers, in the order they need.
// clang-format off
#include <winsock2.h>
#include <ws2tcpip.h>
#include <windows.h>
// clang-format on
