/* A library that takes 64 bytes of static thread-local memory. */
static __thread char block[64] __attribute__((tls_model("initial-exec")));

char *block_of_this_thread(void) { return block; }
