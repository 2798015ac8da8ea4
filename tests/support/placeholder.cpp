// Test support.
