// The smallest bus library: it hands out one handle and tells how often it was called.

extern "C" {

extern int busCalls;
int busCalls = 0;

unsigned long userHebRegisterConsumer(void* record, const char* eventName, const char* consumerName,
                                      unsigned long flags);
unsigned long userHebRegisterConsumer(void* record, const char*, const char*, unsigned long) {
    static_cast<unsigned long long*>(record)[14] = 0x4711;
    ++busCalls;
    return 0;
}

#ifndef BUS_WITHOUT_UNREGISTER
unsigned long userHebUnRegisterConsumer(unsigned long long handle, void* context);
unsigned long userHebUnRegisterConsumer(unsigned long long handle, void*) {
    busCalls += 10;
    return handle == 0x4711 ? 0 : 1;
}
#endif
}
