# Conditions: failures of the library are errors of class murvio_error, its
# warning codes and damaged files warnings of class murvio_warning.

.cache <- new.env(parent = emptyenv())

.code_table <- function() {
  if (is.null(.cache$codes)) {
    t <- .Call(murvio_codes_)
    .cache$codes <- data.frame(code = t$code, name = t$name, meaning = t$meaning, stringsAsFactors = FALSE)
  }
  .cache$codes
}

#' The library's return codes
#'
#' @return A data frame of every code of the C library: its number, its name
#'   in \code{murvio.h} and what it means.
#' @export
murvio_codes <- function() .code_table()

.code_text <- function(code) {
  t <- .code_table()
  i <- match(code, t$code)
  if (is.na(i)) return(sprintf("code %d", code))
  sprintf("code %d %s (%s)", code, t$name[i], t$meaning[i])
}

.code_name <- function(code) {
  t <- .code_table()
  i <- match(code, t$code)
  if (is.na(i)) NA_character_ else t$name[i]
}

.murvio_error <- function(code, what, file, call = NULL) {
  msg <- if (startsWith(what, file)) what else paste0(file, ": ", what)
  structure(class = c("murvio_error", "error", "condition"),
            list(message = paste0(msg, ": ", .code_text(code)), call = call,
                 code = as.integer(code), name = .code_name(code), file = file))
}

.murvio_warning <- function(message, file, code = NA_integer_, call = NULL, ...) {
  structure(class = c("murvio_warning", "warning", "condition"),
            list(message = message, call = call, code = as.integer(code),
                 name = if (is.na(code)) NA_character_ else .code_name(code), file = file, ...))
}

# Raises the failure a compiled call returned, or passes its result on after
# giving its warnings.
.check <- function(res, file, call = NULL) {
  if (inherits(res, "murvio_failure")) stop(.murvio_error(res$code, res$what, file, call))
  w <- attr(res, "murvio_warnings")
  if (!is.null(w)) {
    attr(res, "murvio_warnings") <- NULL
    for (i in seq_along(w$code)) {
      warning(.murvio_warning(paste0(file, ": ", w$what[i], ": ", .code_text(w$code[i])), file, w$code[i], call))
    }
  }
  res
}

# The words for a read that ended before it should have, or that found
# more cases than the header states; NULL for a sound read. `m` is the
# number of whole cases from the start of the file up to where the read
# stopped, `code` the code that stopped it (-5 the end of the data), `whole`
# whether the read went on to the end. Plain files tell a cut inside a case
# from other damage by their size; compressed ones do not.
.damage_text <- function(path, stated, m, code, whole, compressed, layout) {
  if (code == 0) return(NULL)
  fmt <- function(x) format(x, scientific = FALSE)
  of <- if (stated >= 0) sprintf(" of the %s it states", fmt(stated)) else ""
  k <- m + 1
  if (!compressed && !is.null(layout) && layout$data_start >= 0 && layout$cells > 0) {
    # Where the data ends, in cases: at a case boundary, inside a case, or
    # beyond the case that failed.
    held <- (layout$file_size - layout$data_start) / (8 * layout$cells)
    if (held == m) {
      if (stated >= 0 && m < stated) return(sprintf("%s: damaged: the file ends after case %s%s", path, fmt(m), of))
    } else if (held > m && held < k) {
      return(sprintf("%s: damaged: the file ends inside case %s%s", path, fmt(k), of))
    } else if (code > 0) {
      return(sprintf("%s: damaged: case %s%s cannot be read", path, fmt(k), of))
    }
  } else if (code > 0) {
    # The code a failed case read gives says nothing about the damage (the
    # bulk read reports any failure inside as a bad handle), so none is shown.
    return(sprintf("%s: damaged: case %s%s cannot be read", path, fmt(k), of))
  } else if (stated >= 0 && m < stated) {
    return(sprintf("%s: damaged: the file ends after case %s%s", path, fmt(m), of))
  }
  if (code == -5 && whole && stated >= 0 && m > stated) {
    return(sprintf("%s: damaged: the file holds %s cases, more than the %s it states", path, fmt(m), fmt(stated)))
  }
  NULL
}

.damage_warning <- function(text, path, stated, m, call = NULL) {
  warning(.murvio_warning(text, path, call = call, cases_read = m, cases_stated = stated))
}
