# Writing: data frames to system files.

.reserved <- c("ALL", "AND", "BY", "EQ", "GE", "GT", "LE", "LT", "NE", "NOT", "OR", "TO", "WITH")

.valid <- function(names) .Call(murvio_validate_, enc2native(names)) == 0L

.cut_bytes <- function(x, bytes) {
  while (nchar(x, type = "bytes") > bytes) x <- substr(x, 1L, nchar(x) - 1L)
  x
}

# Names the library accepts, unique without regard to case; the changes made.
.repair_names <- function(names) {
  out <- character(length(names))
  taken <- character()
  changed <- character()
  for (i in seq_along(names)) {
    original <- names[i]
    name <- if (is.na(original)) "" else trimws(original)
    if (!.valid(name) || nchar(name, type = "bytes") > 64) {
      chars <- strsplit(name, "")[[1]]
      ok <- grepl("^[A-Za-z0-9@#$_.]$", chars) | vapply(chars, function(ch) utf8ToInt(enc2utf8(ch))[1] >= 128L, logical(1))
      name <- paste(ifelse(ok, chars, "_"), collapse = "")
      if (nzchar(name) && grepl("^[0-9_.#$]", name)) name <- paste0("v", name)
      name <- .cut_bytes(name, 64)
      if (toupper(name) %in% .reserved) name <- paste0(name, "_")
      if (!nzchar(name) || !.valid(name)) name <- paste0("v", i)
    }
    if (toupper(name) %in% taken) {
      k <- 2L
      repeat {
        suffix <- paste0("_", k)
        cand <- paste0(.cut_bytes(name, 64 - nchar(suffix, type = "bytes")), suffix)
        if (!(toupper(cand) %in% taken) && .valid(cand)) {
          name <- cand
          break
        }
        k <- k + 1L
      }
    }
    taken <- c(taken, toupper(name))
    if (is.na(original) || name != original) {
      changed <- c(changed, sprintf("'%s' -> %s", if (is.na(original)) "NA" else original, name))
    }
    out[i] <- name
  }
  list(names = out, changed = changed)
}

# c(type, width, decimals) of a format given as text ("F8.2", "DATE11").
.parse_format <- function(text, what) {
  if (is.null(text)) return(NULL)
  m <- regmatches(text, regexec("^([A-Za-z]+)([0-9]+)(\\.([0-9]+))?$", trimws(text)))[[1]]
  type <- if (length(m)) match(toupper(m[2]), .format_names) else NA
  if (is.na(type)) stop(sprintf("%s: not a format: '%s'", what, text), call. = FALSE)
  c(type, as.integer(m[3]), if (nzchar(m[5])) as.integer(m[5]) else 0L)
}

.missing_def <- function(x, numeric, what) {
  v <- attr(x, "na_values", exact = TRUE)
  r <- attr(x, "na_range", exact = TRUE)
  if (is.null(v) && is.null(r)) return(NULL)
  if (numeric) {
    v <- as.double(v)
    if (!is.null(r)) {
      if (length(r) != 2L || length(v) > 1L) stop(what, ": na_range must be two values, with at most one of na_values", call. = FALSE)
      return(list(kind = if (length(v)) -3L else -2L, values = c(as.double(r), v)))
    }
    if (length(v) > 3L) stop(what, ": at most three na_values", call. = FALSE)
    return(list(kind = length(v), values = v))
  }
  if (!is.null(r)) stop(what, ": a string variable cannot have na_range", call. = FALSE)
  v <- enc2native(as.character(v))
  if (length(v) > 3L) stop(what, ": at most three na_values", call. = FALSE)
  list(kind = length(v), values = v)
}

# One column as the values to write and its variable.
.variable <- function(x, name, what) {
  vdef <- list(name = enc2native(name))
  fmt <- attr(x, "format.murv", exact = TRUE)
  labs <- attr(x, "labels", exact = TRUE)
  if (is.factor(x) && is.character(labs)) {
    # A factor made from a labelled string column goes back to its strings.
    lev <- levels(x)
    vals <- unname(labs)[match(lev, names(labs))]
    vals[is.na(vals)] <- lev[is.na(vals)]
    a <- attributes(x)
    x <- vals[as.integer(x)]
    attributes(x) <- a[setdiff(names(a), c("levels", "class"))]
  }
  if (is.factor(x)) {
    lev <- levels(x)
    codes <- if (is.numeric(labs)) unname(labs)[match(lev, names(labs))] else rep(NA_real_, length(lev))
    # Levels without a label are the values themselves (as_factor names them so).
    unlabelled <- is.na(codes)
    codes[unlabelled] <- suppressWarnings(as.numeric(lev[unlabelled]))
    if (is.numeric(labs) && !anyNA(codes)) {
      # A factor made from labelled values goes back to those values.
      values <- codes[as.integer(x)]
    } else {
      values <- as.integer(x)
      labs <- setNames(seq_along(lev), lev)
      if (is.null(attr(x, "measure", exact = TRUE))) vdef$measure <- 1L
    }
    type <- 0L
  } else if (inherits(x, "Date")) {
    values <- as.double(unclass(x)) * 86400 + .epoch_offset
    type <- 0L
    if (is.null(fmt)) fmt <- "DATE11"
  } else if (inherits(x, "POSIXct")) {
    values <- as.double(unclass(x)) + .epoch_offset
    type <- 0L
    if (is.null(fmt)) fmt <- "DATETIME20"
  } else if (is.double(x) || is.integer(x) || is.logical(x)) {
    # Written as it is (the writer reads the values, not the attributes):
    # no copy of a large column.
    values <- x
    type <- 0L
    if (is.null(fmt) && !is.double(x)) fmt <- "F8"
  } else if (is.character(x)) {
    values <- enc2native(x)
    width <- max(1L, nchar(values, type = "bytes"), na.rm = TRUE)
    if (width > 32767L) stop(sprintf("%s: a value of %d bytes; the longest string is 32767 bytes", what, width), call. = FALSE)
    type <- as.integer(width)
    # A string's format is as wide as the variable.
    if (!is.null(fmt)) fmt <- paste0("A", width)
  } else {
    stop(sprintf("%s: a column of class %s cannot be written", what, paste(class(x), collapse = "/")), call. = FALSE)
  }
  vdef$type <- type
  label <- attr(x, "label", exact = TRUE)
  if (!is.null(label) && !is.na(label[1])) vdef$label <- enc2native(as.character(label[1]))
  if (!is.null(fmt)) vdef$print <- as.integer(.parse_format(fmt, what))
  wfmt <- attr(x, "write_format.murv", exact = TRUE)
  if (type > 0L && !is.null(wfmt)) wfmt <- paste0("A", type)
  if (!is.null(wfmt)) vdef$write <- as.integer(.parse_format(wfmt, what)) else if (!is.null(fmt)) vdef$write <- vdef$print
  vdef$missing <- .missing_def(x, type == 0L, what)
  if (!is.null(labs) && length(labs)) {
    if (type == 0L) {
      if (!is.numeric(labs)) stop(what, ": the labels of a numeric column must be numbers", call. = FALSE)
      vdef$value_labels <- as.double(unname(labs))
    } else {
      vdef$value_labels <- enc2native(as.character(unname(labs)))
    }
    vdef$value_label_texts <- enc2native(if (is.null(names(labs))) rep("", length(labs)) else names(labs))
  }
  m <- attr(x, "measure", exact = TRUE)
  if (!is.null(m)) {
    level <- match(m, .measures) - 1L
    if (is.na(level)) stop(sprintf("%s: measure '%s' is not one of %s", what, m, paste(.measures, collapse = ", ")), call. = FALSE)
    vdef$measure <- level
  }
  w <- attr(x, "display_width", exact = TRUE)
  if (!is.null(w)) vdef$display_width <- as.integer(w)
  al <- attr(x, "alignment", exact = TRUE)
  if (!is.null(al)) {
    a <- match(al, .alignments) - 1L
    if (is.na(a)) stop(sprintf("%s: alignment '%s' is not one of %s", what, al, paste(.alignments, collapse = ", ")), call. = FALSE)
    vdef$alignment <- a
  }
  ca <- attr(x, "custom_attributes", exact = TRUE)
  if (length(ca)) vdef$attributes <- setNames(enc2native(as.character(ca)), enc2native(names(ca)))
  list(vdef = vdef, values = values)
}

.info <- function(data) {
  info <- list()
  label <- attr(data, "label", exact = TRUE)
  if (!is.null(label)) info$file_label <- enc2native(as.character(label[1]))
  notes <- attr(data, "notes", exact = TRUE)
  if (length(notes)) info$documents <- enc2native(as.character(notes))
  m <- attr(data, "murv", exact = TRUE)
  if (!is.null(m)) {
    for (k in c("weight", "text_info", "variable_sets")) {
      if (!is.null(m[[k]])) info[[k]] <- enc2native(as.character(m[[k]][1]))
    }
    if (length(m$file_attributes)) {
      info$file_attributes <- setNames(enc2native(as.character(m$file_attributes)), enc2native(names(m$file_attributes)))
    }
    if (length(m$mrsets)) info$mrsets <- m$mrsets
    if (length(m$date_variables)) info$date_variables <- as.integer(m$date_variables)
    if (length(m$extension_records)) info$extension_records <- m$extension_records
  }
  info
}

#' Write a data frame as a system file
#'
#' Double, integer and logical columns become numeric variables (\code{NA}
#' the system-missing value), character columns string variables as wide as
#' their longest value in bytes (up to 32767), factors numeric codes with
#' their levels as value labels (a factor that \code{read_murv} made goes back
#' to the file's values), \code{Date} and \code{POSIXct} columns date
#' variables with DATE and DATETIME formats. The attributes \code{read_murv}
#' gives (\code{label}, \code{labels}, \code{format.murv}, \code{na_values},
#' \code{na_range}, \code{measure}, \code{display_width}, and the frame's
#' \code{label}, \code{notes} and \code{murv}) are written.
#'
#' Names the library does not accept are made valid and unique, with a
#' warning of class \code{murvio_warning} that lists each change.
#'
#' The file is written beside \code{path} and moved there only when it is
#' complete: a failure leaves no partial file, and an existing file stays as
#' it was. A symbolic link is followed; a directory, a device or a pipe is
#' refused.
#'
#' @param data A data frame.
#' @param path The file to write.
#' @param compress If \code{TRUE}, the cases are stored compressed.
#' @return \code{data}, invisibly.
#' @export
write_murv <- function(data, path, compress = TRUE) {
  call <- sys.call()
  if (!is.data.frame(data)) stop("`data` must be a data frame", call. = FALSE)
  path <- path.expand(as.character(path))
  if (length(path) != 1L || is.na(path) || !nzchar(path)) stop("`path` must be one file name", call. = FALSE)
  if (ncol(data) == 0L) stop(.murvio_error(11L, "a frame without columns", path, call))
  repaired <- .repair_names(names(data))
  if (length(repaired$changed)) {
    warning(.murvio_warning(paste0(path, ": names changed to names the library accepts: ",
                                   paste(repaired$changed, collapse = ", ")), path, call = call,
                            changes = repaired$changed))
  }
  vars <- vector("list", ncol(data))
  cols <- vector("list", ncol(data))
  for (j in seq_along(data)) {
    v <- .variable(data[[j]], repaired$names[j], sprintf("column '%s'", names(data)[j]))
    vars[[j]] <- v$vdef
    cols[[j]] <- v$values
  }
  .check(.Call(murvio_write_, enc2native(path), isTRUE(compress), vars, cols, .info(data)), path, call)
  invisible(data)
}
