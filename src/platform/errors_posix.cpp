// The system's error texts where the operating system has none by these
// numbers: the codes are the Windows ones that the POSIX layer maps errno to,
// and the few that the program makes up itself. Each text ends in CR LF, as a
// system text does, since the diagnostic takes its line end from the text.
#include "platform/message_format.h"
#include "platform/posix.h"

namespace {

struct error_text {
    uint32_t code;
    const char16_t *english;
    const char16_t *swedish;
};

// In order of code. Texts with inserts of their own print them as written,
// because callers pass no inserts with a system code.
const error_text error_texts[] = {
    {0, u"The operation completed successfully.\r\n", u"Åtgärden har slutförts.\r\n"},
    {1, u"Incorrect function.\r\n", u"Felaktig funktion.\r\n"},
    {2, u"The system cannot find the file specified.\r\n", u"Det går inte att hitta filen.\r\n"},
    {3, u"The system cannot find the path specified.\r\n", u"Det går inte att hitta sökvägen.\r\n"},
    {4, u"The system cannot open the file.\r\n", u"Det går inte att öppna filen.\r\n"},
    {5, u"Access is denied.\r\n", u"Åtkomst nekad.\r\n"},
    {6, u"The handle is invalid.\r\n", u"Referensen är ogiltig.\r\n"},
    {8, u"Not enough memory resources are available to process this command.\r\n",
     u"Det finns inte tillräckligt med minne för att utföra kommandot.\r\n"},
    {11, u"An attempt was made to load a program with an incorrect format.\r\n",
     u"Ett försök gjordes att läsa in ett program med felaktigt format.\r\n"},
    {13, u"The data is invalid.\r\n", u"Data är ogiltiga.\r\n"},
    {14, u"Not enough memory resources are available to process this command.\r\n",
     u"Det finns inte tillräckligt med minne för att utföra kommandot.\r\n"},
    {18, u"There are no more files.\r\n", u"Det finns inga fler filer.\r\n"},
    {19, u"The media is write protected.\r\n", u"Mediet är skrivskyddat.\r\n"},
    {21, u"The device is not ready.\r\n", u"Enheten är inte klar.\r\n"},
    {29, u"The system cannot write to the specified device.\r\n",
     u"Det går inte att skriva till den angivna enheten.\r\n"},
    {30, u"The system cannot read from the specified device.\r\n",
     u"Det går inte att läsa från den angivna enheten.\r\n"},
    {31, u"A device attached to the system is not functioning.\r\n",
     u"En enhet som är ansluten till systemet fungerar inte.\r\n"},
    {32, u"The process cannot access the file because it is being used by another process.\r\n",
     u"Processen kommer inte åt filen eftersom den används av en annan process.\r\n"},
    {38, u"Reached the end of the file.\r\n", u"Slutet av filen har nåtts.\r\n"},
    {39, u"The disk is full.\r\n", u"Disken är full.\r\n"},
    {80, u"The file exists.\r\n", u"Filen finns redan.\r\n"},
    {87, u"The parameter is incorrect.\r\n", u"Parametern är felaktig.\r\n"},
    {109, u"The pipe has been ended.\r\n", u"Pipen har avslutats.\r\n"},
    {112, u"There is not enough space on the disk.\r\n",
     u"Det finns inte tillräckligt med utrymme på disken.\r\n"},
    {122, u"The data area passed to a system call is too small.\r\n",
     u"Dataområdet som skickades till ett systemanrop är för litet.\r\n"},
    {123, u"The filename, directory name, or volume label syntax is incorrect.\r\n",
     u"Syntaxen för filnamnet, katalognamnet eller volymetiketten är felaktig.\r\n"},
    {145, u"The directory is not empty.\r\n", u"Katalogen är inte tom.\r\n"},
    {183, u"Cannot create a file when that file already exists.\r\n",
     u"Det går inte att skapa en fil som redan finns.\r\n"},
    {193, u"%1 is not a valid application.\r\n", u"%1 är inte ett giltigt program.\r\n"},
    {203, u"The system could not find the environment option that was entered.\r\n",
     u"Det gick inte att hitta den angivna miljövariabeln.\r\n"},
    {206, u"The filename or extension is too long.\r\n",
     u"Filnamnet eller filnamnstillägget är för långt.\r\n"},
    {267, u"The directory name is invalid.\r\n", u"Katalognamnet är ogiltigt.\r\n"},
    {1113, u"No mapping for the Unicode character exists in the target multi-byte code page.\r\n",
     u"Det finns ingen mappning för Unicode-tecknet i målteckentabellen.\r\n"},
    {1117, u"The request could not be performed because of an I/O device error.\r\n",
     u"Begäran kunde inte utföras på grund av ett I/O-enhetsfel.\r\n"},
};

// The generic sentence carries its number already, so it has no insert that a
// caller would have to pass.
char16_t unknown_text[80];

} // namespace

const char16_t *system_error_text(uint32_t code, uint16_t language) {
    bool swedish = language == LANG_SWEDISH;
    for (const error_text &entry : error_texts)
        if (entry.code == code) return swedish ? entry.swedish : entry.english;
    const fmt_arg number(code);
    format_counted(unknown_text, sizeof unknown_text / sizeof unknown_text[0],
                   swedish ? u"Okänt systemfel %u.\r\n" : u"Unknown system error %u.\r\n", &number,
                   1);
    return unknown_text;
}
