#pragma once
// One connection to PostgreSQL.

#include <initializer_list>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>

#include <libpq-fe.h>

namespace store {

class DatabaseError : public std::runtime_error {
  public:
    DatabaseError(const std::string& text, std::string code) : std::runtime_error(text), sqlstate(std::move(code)) {}

    /// What was to be written is at fault, and will be the next time.
    bool is_of_data() const;
    /// No partition stands for a line.
    bool is_without_partition() const { return sqlstate == "23514"; }

  private:
    std::string sqlstate;  // five characters, or "" without a connection
};

class Result {
  public:
    explicit Result(PGresult* pg_result) : result(pg_result) {}

    int rows() const { return ::PQntuples(result.get()); }
    const char* text(int row, int column) const { return ::PQgetvalue(result.get(), row, column); }
    long number(int row, int column) const;
    /// How many rows the command wrote.
    long written() const;
    PGresult* get() const { return result.get(); }

  private:
    struct Clear {
        void operator()(PGresult* pg_result) const { ::PQclear(pg_result); }
    };
    std::unique_ptr<PGresult, Clear> result;
};

class Database {
  public:
    /// Connects, in a time that ends. All methods throw a DatabaseError.
    explicit Database(const std::string& conninfo);

    Result run(const std::string& sql, std::initializer_list<std::string_view> parameters = {});
    /// Several commands without parameters.
    void run_all(const std::string& sql);
    /// COPY ... FROM STDIN of rows that are encoded already.
    void copy(const std::string& sql, std::string_view rows);
    bool in_transaction() const { return ::PQtransactionStatus(connection.get()) != PQTRANS_IDLE; }

  private:
    struct Close {
        void operator()(PGconn* pg_connection) const { ::PQfinish(pg_connection); }
    };

    Result check(PGresult* result);
    [[noreturn]] void fail(const PGresult* result);

    std::unique_ptr<PGconn, Close> connection;
};

/// A text[] parameter of these texts.
class TextArray {
  public:
    void add(std::string_view text);
    std::string text() const { return elements.empty() ? "{}" : elements + '}'; }

  private:
    std::string elements;
};

}  // namespace store
