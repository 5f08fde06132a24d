// Time conversions, text scanning and path quoting for shell command lines.
#pragma once

// "hh:mm:ss" to seconds; one colon gives the hours alone, none gives 0.
int time_convert_to_second(const char* text);
// Groups of digits, each one multiplying what came before by 60.
int hhmmss_convert_to_sec(const char* text);
// "%02d:%02d:%02d" into `out`; the result is snprintf's.
int sec_convert_to_hhmmss(int seconds, char* out, int size);
// Text to number (digits are not checked).
int itoa(const char* text);

// Moves past the current line and its run of line ends: 0 with `advance` at
// the next line, -1 with `advance` at the terminating zero.
int Go_Next_Line(const char* text, int size, int* advance);
// Copies the next blank-separated word into `word`: 0, or -1 at a line end,
// at the end of the text, or when the word does not fit `wordSize`.
int Get_Next_Word(const char* text, int size, char* word, int wordSize, int* advance);

// Puts a backslash before the characters a shell would read specially
// (blank ! " $ & ' ( ) , ; = [ ] ^ ` { }); multibyte characters pass as they
// stand. -1 when `in` is `outSize` long or longer, or when the quoted text
// would not fit `out`.
int convert_utf8_linux_filepath(const char* in, char* out, int outSize);
// The same, with the backslash itself in the set.
int convert_utf8_linux_filepath_2(const char* in, char* out, int outSize);

// Looks beside `videoPath` for a subtitle (.srt, then .ass, also with a
// language tag such as movie.eng.srt). 1 with the path in `out`; 0 when the
// feature is switched off; -1 otherwise.
int is_default_subtitle_found(const char* videoPath, char* out, int outSize);
