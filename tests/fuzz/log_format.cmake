# The formatter of the log against the C library's. ./log_format_fuzz -max_total_time=60
kv_add_fuzz(log_format_fuzz SOURCES LogFormatFuzz.cpp DEPS kv_common)
