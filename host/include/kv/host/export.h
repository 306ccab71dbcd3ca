#pragma once

/// Marks what libkvhost exports; exception types that cross libraries have it too.
#define KV_HOST_API __attribute__((visibility("default")))
