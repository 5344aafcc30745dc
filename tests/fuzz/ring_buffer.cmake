# The ring buffer and its handler against models of a few lines. ./ring_buffer_fuzz -max_total_time=60
kv_add_fuzz(ring_buffer_fuzz SOURCES RingBufferFuzz.cpp ../support/TempDir.cpp DEPS kv_stream)
