// The public validator of reports, started once for many files: a path a line on standard input; what is said of it, and a
// line "=== ", on standard output.
import com.pixelmed.dicom.AttributeList;
import com.pixelmed.validate.DicomSRValidator;
import java.io.BufferedReader;
import java.io.InputStreamReader;

public class ReportJudge {
  public static void main(String[] arguments) throws Exception {
    DicomSRValidator validator = new DicomSRValidator();
    BufferedReader input = new BufferedReader(new InputStreamReader(System.in));
    for (String path; (path = input.readLine()) != null; System.out.println("=== ")) {
      try {
        AttributeList list = new AttributeList();
        list.read(path);
        System.out.println(validator.validate(list));
      } catch (Exception error) {
        System.out.println("Error: not read: " + error);
      }
    }
  }
}
