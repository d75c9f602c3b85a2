// What the thread sanitizer is told in the programs that talk to a bus. These libraries come
// without its instrumentation, so that it sees their memory but not how they guard it. Everything of ours
// stays checked.

extern "C" const char* __tsan_default_suppressions();

extern "C" const char* __tsan_default_suppressions() {
    return "called_from_lib:libdbus-1.so\n"
           "called_from_lib:libavahi-client.so\n"
           "called_from_lib:libavahi-common.so\n"
           "called_from_lib:libglib-2.0.so\n"
           "called_from_lib:libgio-2.0.so\n"
           "called_from_lib:libgobject-2.0.so\n"
           "called_from_lib:libsecret-1.so\n"
           // The last thing that libdbus does when it lets go of a message looks like ours.
           "mutex:vark::isAvahiForbidden\n";
}
