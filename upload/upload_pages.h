// The pages of the upload server, byte by byte: what it sends, and by what a sender knows it.
#pragma once

constexpr const char* kUploadForm =
    "<!DOCTYPE html>\n"
    "<html>\n"
    "<body>\n"
    "<form action='upload' method='post' enctype='multipart/form-data'>\n"
    "  <h1>JX application file upload</h1>\n"
    "  Filename: <input type='file' name='upload' multiple><br>\n"
    "  <input type='submit' value='Upload file'>\n"
    "</form><br>\n"
    "Certificates on terminal: <a href='certificates.tar'>certificates.tar</a>\n"
    "</body>\n"
    "</html>\n";

// A result page: its begin, one of the two lines, after the first the installer's log, its end.
constexpr const char* kUploadResultBegin = "<!DOCTYPE html>\n<html>\n<body>\n<form action='/' method='GET'>\n";
constexpr const char* kUploadSuccessful = "Upload successful<br>\n";
constexpr const char* kUploadFailed = "Upload failed<br>\n";
constexpr const char* kUploadResultEnd = "<input type='submit' value='OK'>\n</form>\n</body>\n</html>\n";
