// libcurl's process-wide set-up must run once, before any other curl call and not
// concurrently with one; every curl user in the framework calls this first.
#pragma once

void ensure_curl_global_init();
